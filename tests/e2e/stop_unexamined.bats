#!/usr/bin/env bats
# Stop when the kernel refuses to show something: nothing is removed under processes that could not
# be found.
load helpers
load with_residents

@test "a file that cannot be examined is treated as a namespace" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net sleep 60
injected statfs:error=EPERM kivctl stop alice
same status 0 "$status"
same stderr "alice: terminating processes: $pid" "$err"
EOF
}

@test "if threads cannot be listed nothing is changed" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net sleep 60
ns="/proc/$pid/ns/net"
capture strace -f -o /tmp/trace -P "$ns" -P "/proc/$pid/task/" -e inject=openat:error=EMFILE \
    -e inject=readlink,newfstatat:error=ENOENT kivctl stop alice
same status 71 "$status"
same stderr "kivctl: Cannot open /proc/$pid/task/: Too many open files" "$(grep -v '^strace' <<<"$err")"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
runs "$pid"
EOF
}

@test "if threads cannot be listed while stop prints processes, that line is complete before the error" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net sleep 60
ns="/proc/$pid/ns/net"
capture strace -f -o /tmp/trace -P "$ns" -P "/proc/$pid/task/" -e inject=openat:error=EMFILE \
    -e inject=readlink:error=ENOENT:when=2+ -e inject=newfstatat:error=ENOENT kivctl stop alice
same status 71 "$status"
same stderr "alice: terminating processes: $pid
kivctl: Cannot open /proc/$pid/task/: Too many open files" "$(grep -v '^strace' <<<"$err")"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
runs "$pid"
EOF
}

@test "if pidfds are refused, processes are signalled by their numbers" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
for refused in pidfd_open:error=EPERM pidfd_open:error=EMFILE pidfd_send_signal:error=EPERM; do
    resident alice net sleep 60
    injected "$refused" kivctl stop alice
    same "stderr with $refused" "alice: terminating processes: $pid" "$err"
    until_ended "$pid"
    kivctl start alice
done
EOF
}

@test "without the lock nothing is stopped" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
injected fcntl:error=ENOLCK kivctl stop alice
same status 71 "$status"
same stderr "kivctl: /run/kiv: cannot lock: No locks available" "$err"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "if kivctl's own namespaces cannot be examined nothing is changed" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
capture strace -f -o /tmp/trace -e inject=statx:error=EACCES:when=2 kivctl stop alice
same status 71 "$status"
[[ $err =~ ^kivctl:\ /proc/[0-9]+/ns/ipc:\ Permission\ denied$ ]]
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "a file that cannot be examined a second time is removed all the same" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
injected statx:error=EIO:when=2 -P /run/kiv/alice@net kivctl stop alice
same status 0 "$status"
same stderr "" "$err"
same "files left" "" "$(ls /run/kiv)"
EOF
}
