# shellcheck shell=bash
# A fresh Debian in the directory $root, for tests of the packages.

# in_root COMMAND…: in the fresh Debian, in mount and process namespaces of its own.
in_root() {
    # shellcheck disable=SC2016,SC2154 # for the shell inside; $root is the caller's
    unshare --mount --propagation private --pid --fork --kill-child bash -euc '
        root=$1
        shift
        mount --bind "$root" "$root"
        cd "$root"
        mount -t proc proc proc
        mount -t sysfs -o ro sys sys
        mkdir -p old
        pivot_root . old
        umount --lazy /old
        cd /
        rmdir /old
        exec env --ignore-environment PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
            DEBIAN_FRONTEND=noninteractive "$@"' in_root "$root" "$@"
}
