# Loaded by the tests of kiv-refresh after helpers.

# replace FILE TEXT: replaces a file like dpkg(1), by renaming a new one over it.
replace() {
    echo "$2" >"$1.new"
    mv "$1.new" "$1"
}

# of_view NAME: prints the inode number of the pinned mount namespace.
of_view() { stat -Lc %i "/run/kiv/$1@mnt"; }

# refreshed COMMAND…: the command must succeed without a message.
refreshed() {
    capture "$@"
    same "status of $*" 0 "$status"
    same "output of $*" "" "$out$err"
}

# host_is_writable: the host's root must not have been remounted.
host_is_writable() { touch /made && rm /made; }

# inside NAME PID: the process must be in the account's pinned view.
inside() { [ "$(readlink "/proc/$2/ns/mnt")" = "mnt:[$(of_view "$1")]" ]; }
export -f replace of_view refreshed host_is_writable inside
