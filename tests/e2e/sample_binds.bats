#!/usr/bin/env bats
# The paths that the sample configuration binds are the host's own. Nothing that can be written
# there may control the host.
load helpers

setup() {
    export project sample="$project/dist/kiv.conf"
}

# permitted: prints which bound paths may be written, and by whom; the list gives the reasons.
permitted() {
    sed 's/ *#.*//' "$project/tests/sample/places" | grep -E "^[a-z]+ ($(bound_items | paste -sd'|'))(/|$)"
}

# bound_items: prints the items of "bind" in the sample.
bound_items() { awk '/^[^ #]/ { inside = $1 == "bind" } inside && /^ +[^ #]/ { print $1 }' "$sample"; }

# mysql_runs: creates its directory and socket like Debian's packages.
mysql_runs() {
    getent passwd mysql >/dev/null || useradd --system mysql
    install -d -o mysql -g root -m 755 /run/mysqld
    setpriv --reuid mysql --regid mysql --clear-groups \
        socat UNIX-LISTEN:/run/mysqld/mysqld.sock,fork,mode=777 - &
    eventually test -S /run/mysqld/mysqld.sock
}

# set_id_copy NAME MODE GROUP: gives alice the searching program with a set-ID bit.
set_id_copy() { install -g "$3" -m "$2" "$programs/writable" "/home/alice/$1"; }

# writes WHO PROGRAM: prints the bound paths that the program finds writable.
writes() {
    # shellcheck disable=SC2016 # for the shell inside
    inside alice 'setsid --wait ~/"$@"' "$2" "${binds[@]}" | sed "s/: ENXIO$//; s/^/$1 /"
}

# root_owns: prints paths that user ID 0 may make writable for itself.
root_owns() { enter_as_root alice find "${binds[@]}" -user root ! -type l -printf 'root %p\n'; }

# group_writes: prints paths that set-group-ID programs could write, for every group of a bound
# path.
group_writes() {
    local group
    enter_as_root alice find "${binds[@]}" ! -group root -printf '%g\n' | sort -u >/tmp/groups
    while read -r group; do
        set_id_copy "writable_$group" 2755 "$group"
        writes alice "writable_$group" # only the paths that alice can write anyway are permitted
    done </tmp/groups
}

# bound: prints the items of "bind" that are mounted in the container.
bound() { enter_as_root alice findmnt --raw --noheadings --output TARGET | grep -Fx "$(bound_items)" | sort; }

# find_binds: sets `binds` to them.
find_binds() { mapfile -t binds < <(bound); }
export -f permitted bound_items mysql_runs set_id_copy writes root_owns group_writes bound find_binds

@test "a host with every path that the sample binds can bind all of them" {
    in_host <<'SCRIPT'
while read -r item; do
    [ -e "$item" ] || mkdir -p "$item"
done < <(bound_items)
account alice 100.64.0.4/30
cp "$sample" "$configuration"
kivctl start alice
same "what is bound" "$(bound_items | sort)" "$(bound)"
SCRIPT
}

@test "only bound paths that do not control the host can be written" {
    in_host <<'SCRIPT'
source "$project/tests/e2e/attacks.bash"
mysql_runs
rm /etc/resolv.conf # it may be a link
echo "nameserver 192.0.2.53" >/etc/resolv.conf
account alice 100.64.0.4/30
chmod 711 /home/alice # lets root without capabilities pass
set_id_copy writable 755 root
set_id_copy writable_root 4755 root
cp "$sample" "$configuration"
kivctl start alice
find_binds
same "what can be written" "$(permitted | sort)" \
    "$({ writes alice writable; writes root writable_root; root_owns; group_writes; } | sort -u)"
SCRIPT
}

@test "a daemon's socket in the host's root file system takes no connection from inside" {
    in_host <<'SCRIPT'
account alice 100.64.0.4/30
cp "$sample" "$configuration"
kivctl start alice
socat UNIX-LISTEN:/srv/socket,fork,mode=777 SYSTEM:'echo obeyed' &
eventually test -S /srv/socket
same "outside" obeyed "$(runuser -u alice -- socat -u UNIX-CONNECT:/srv/socket -)"
fails 1 kivctl exec alice <<<'test -S /srv/socket && socat -u UNIX-CONNECT:/srv/socket -' >/tmp/said 2>&1
grep 'Connection refused' /tmp/said >/dev/null
SCRIPT
}
