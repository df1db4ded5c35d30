#!/usr/bin/env bats
# How often start reads the mount table, which is slow with thousands of containers, and that its
# knowledge of the mounts is current.
load helpers

# long_table: makes more mounts than one read(2) of the table returns; the last one is on /tmp/last.
long_table() {
    local number
    mkdir /tmp/many
    for ((number = 0; number < 100; number++)); do
        mkdir "/tmp/many/$number"
        mount --bind "/tmp/many/$number" "/tmp/many/$number"
    done
    last_mount
}

# last_mount: moves the mount on /tmp/last to the end of the table.
last_mount() {
    mkdir -p /tmp/last
    umount /tmp/last 2>/dev/null || true
    mount --bind /tmp/last /tmp/last
}

# reads COMMAND…: prints how often the command reads the end of the mount table. Its children are
# not counted.
reads() {
    strace -s 10000 -e trace=read -o /tmp/trace "$@" >/dev/null
    grep -c ' /tmp/last ' /tmp/trace || true
}
export -f long_table last_mount reads

@test "start of accounts that already run reads the mount table once" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol 100.64.0.12/30
prepared_runtime_directory
long_table
kivctl start -a 2>/dev/null
last_mount
same "reads" 1 "$(reads kivctl start -a)"
EOF
}

@test "start of an account without namespace files does not read the mount table to its end" {
    in_host <<'EOF'
account alice 100.64.0.4/30
prepared_runtime_directory
long_table
same "reads" 0 "$(reads kivctl start alice)"
same "mounted" "net ipc mnt" "$(mounted alice | xargs)"
EOF
}

@test "start sees that a namespace was unmounted while it started another account" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol 100.64.0.12/30
kivctl start -a 2>/dev/null
kivctl stop bob
record ip 'umount /run/kiv/carol@ipc 2>/dev/null; exec $real "$@"'
kivctl start -a 2>/dev/null
same "bob's" "net ipc mnt" "$(mounted bob | xargs)"
same "carol's" "net ipc mnt" "$(mounted carol | xargs)"
EOF
}

@test "start sees that the runtime directory was shared while it started another account" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
record ip 'case $* in *veth-alice*) mount --make-shared /run/kiv ;; esac; exec $real "$@"'
kivctl start -a 2>/dev/null
same "propagation" private "$(findmnt --noheadings --output PROPAGATION /run/kiv)"
EOF
}
