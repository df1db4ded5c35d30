#!/usr/bin/env bats
# What a killed start or stop leaves is never entered, taken for running or forgotten.
load helpers
load interrupted

@test "a start and a stop that complete leave no mark" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
same "marks beside the running container" "" "$(marks)"
kivctl stop alice
same "marks after the stop" "" "$(marks)"
EOF
}

@test "a start whose child is killed while it builds is not entered" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected mount:signal=KILL:when=1 -P /mnt/temp-root kivctl start alice
same status 0 "$status"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
capture kivctl exec alice </dev/null
same status 71 "$status"
same stderr "kivctl: /run/kiv: starting the container of alice was interrupted, start it with: kivctl start alice" "$err"
EOF
}

@test "a container whose start was killed while it built is not taken for running" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected mount:signal=KILL:when=1 -P /mnt/temp-root kivctl start alice
test -e /run/kiv/alice@mnt
capture kivctl start alice
same status 0 "$status"
same stderr "unpinning /run/kiv/alice@net, an earlier start or stop was interrupted
unpinning /run/kiv/alice@ipc, an earlier start or stop was interrupted
unpinning /run/kiv/alice@mnt, an earlier start or stop was interrupted" "$err"
same marks "" "$(marks)"
same mounts $'net\nipc\nmnt' "$(mounted alice)"
same "type of the root" overlayfs "$(enter_as_root alice stat -f -c %T /)"
same rules 2 "$(iptables-save | grep -c veth-alice)"
same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
test "$(kivctl exec alice <<<'id -un')" = alice
EOF
}

@test "a container whose start is killed with its child before the child is released is not entered" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record iptables 'case $* in *INPUT*) : >/tmp/half-way; sleep 5 ;; esac; exec $real "$@"'
set -m # a separate process group
kivctl start alice &
group=$!
set +m
until test -e /tmp/half-way; do sleep 0.01; done
kill -KILL -- -$group
wait $group || true
rm -r /tmp/recorded
same "live namespaces" "" "$(mounted alice)"
refused kivctl exec alice </dev/null
until ! test -e /sys/class/net/veth-alice; do sleep 0.01; done
kivctl start alice
same rules 2 "$(iptables-save | grep -c veth-alice)"
kivctl stop alice
same "marks left" "" "$(marks)"
same "rules left" "" "$(iptables-save | grep veth || true)"
EOF
}

@test "a start that is killed before it has pinned all stays marked, and its child ends too" {
    for place in rules net ipc mnt; do
        export place
        in_host <<'EOF'
account alice 100.64.0.4/30
if [ "$place" = rules ]; then
    record iptables 'case $* in *INPUT*) kill -KILL "$PPID"; exit ;; esac; exec $real "$@"'
    refused kivctl start alice
    rm /tmp/recorded/iptables
else
    injected mount:signal=KILL -P "/run/kiv/alice@$place" kivctl start alice
fi
with_lock alice exclusive true # the child holds it too: waits for its end
same "marks after $place" trusted.kiv.unfinished.alice "$(marks)"
refused kivctl exec alice </dev/null
[[ $place != [rn]* ]] || eventually test ! -e /sys/class/net/veth-alice
capture kivctl start alice
same "status after $place" 0 "$status"
same "rules after $place" 2 "$(iptables-save | grep -c veth-alice)"
same "marks after $place" "" "$(marks)"
same "who is inside" alice "$(kivctl exec alice <<<'id -un')"
kivctl stop alice
same "rules left after $place" "" "$(iptables-save | grep veth || true)"
EOF
    done
}

@test "a container whose mounts stay shared with the host is not entered" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected mount:error=EPERM:when=1 -P / kivctl start alice
same stderr "mount(unshare) failed: Operation not permitted
kivctl: mounts are shared with the host, giving up" "$err"
refused kivctl exec alice </dev/null
kivctl start alice
test "$(kivctl exec alice <<<'id -un')" = alice
EOF
}

@test "a covered root is not taken for a complete container" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected mkdir:error=ENOSPC -P /mnt/kiv kivctl start alice
same "stderr of the failed start" "kivctl: mkdir(kiv) failed: No space left on device" "$err"
capture kivctl exec alice </dev/null
same "status of exec" 71 "$status"
same "stderr of exec" "kivctl: /run/kiv: starting the container of alice was interrupted, start it with: kivctl start alice" "$err"
runs_again alice
EOF
}

@test "a root that could not even be covered is not entered" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected mount:error=ENOMEM:when=2+ -P / kivctl start alice
same stderr "mount(cover) failed: Cannot allocate memory
kivctl: bind-mount(root) failed: Cannot allocate memory" "$err"
refused kivctl exec alice </dev/null
EOF
}

@test "a busy namespace of a killed start stays marked" {
    in_host <<'EOF'
account alice 100.64.0.4/30
killed_and_busy mnt
capture kivctl stop alice
same stderr "Cannot unmount /run/kiv/alice@mnt: Device or resource busy" "$err"
same "files left" alice@mnt "$(ls /run/kiv)"
same "marks left" trusted.kiv.unfinished.alice "$(marks)"
exec 9<&-
kivctl stop alice
same "files left by the next" "" "$(ls /run/kiv)"
same "marks left by the next" "" "$(marks)"
EOF
}

@test "stop keeps the mark of a killed start while only the network is busy" {
    in_host <<'EOF'
account alice 100.64.0.4/30
killed_and_busy net
capture kivctl stop alice
same stderr "Cannot unmount /run/kiv/alice@net: Device or resource busy" "$err"
same "files left" alice@net "$(ls /run/kiv)"
same "marks left" trusted.kiv.unfinished.alice "$(marks)"
exec 9<&-
runs_again alice
EOF
}

@test "a stop that cannot mark what is left keeps the mark that it found" {
    in_host <<'EOF'
account alice 100.64.0.4/30
killed_and_busy net
injected fsetxattr:error=ENOSPC kivctl stop alice
same stderr "Cannot unmount /run/kiv/alice@net: Device or resource busy
/run/kiv: cannot mark what is left: No space left on device" "$err"
same "marks left" trusted.kiv.unfinished.alice "$(marks)"
exec 9<&-
runs_again alice
EOF
}

@test "a mark that cannot be set ends the start before anything is created" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start bob
injected fsetxattr:error=ENOSPC kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv: cannot mark a container that is being started: No space left on device" "$err"
same "live namespaces" "" "$(mounted alice)"
injected fsetxattr:error=EOPNOTSUPP kivctl start alice
same "status without attributes" 0 "$status"
same "who is inside" alice "$(kivctl exec alice <<<'id -un')"
EOF
}

@test "namespaces that were pinned before the killed start stay pinned" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
before=$(stat -Lc %i /run/kiv/alice@net)
umount /run/kiv/alice@mnt
injected mount:signal=KILL:when=1 -P /mnt/temp-root kivctl start alice
capture kivctl start alice
same "lines about unpinning" "unpinning /run/kiv/alice@mnt, an earlier start or stop was interrupted" \
    "$(grep ^unpinning <<<"$err")"
same "network namespace" "$before" "$(stat -Lc %i /run/kiv/alice@net)"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same marks "" "$(marks)"
EOF
}

@test "the next start clears the mark of a container that lacks nothing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
mark alice
capture kivctl exec alice <<<'id -un'
same "status before" 71 "$status"
capture kivctl start alice
same "stderr of start" "" "$err"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same marks "" "$(marks)"
same shell alice "$(kivctl exec alice <<<'id -un')"
EOF
}
