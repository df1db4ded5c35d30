#!/usr/bin/env bats
# Packet rules and interfaces that a killed or failed start or stop leaves: the next run removes
# them.
load helpers
load interrupted

@test "a stop that is killed between the file and the rules is finished by the next one" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
capture strace -o /tmp/trace -e inject=clone,?vfork:signal=KILL:when=1 kivctl stop alice
same "files left" "" "$(ls /run/kiv)"
same "marks left" trusted.kiv.unfinished.alice "$(marks)"
same "rules left" 2 "$(iptables-save | grep -c veth-alice)"
kivctl stop alice
same "files left by the next" "" "$(ls /run/kiv)"
same "marks left by the next" "" "$(marks)"
same "rules left by the next" "" "$(iptables-save | grep veth || true)"
EOF
}

@test "a start after such a stop adds its rules once" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
capture strace -o /tmp/trace -e inject=clone,?vfork:signal=KILL:when=1 kivctl stop alice
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same rules 2 "$(iptables-save | grep -c veth-alice)"
same marks "" "$(marks)"
EOF
}

@test "a start after one that could not pin the network adds its rules once" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected mount:error=EINVAL -P /run/kiv/alice@net kivctl start alice
same status 71 "$status"
kivctl start alice
same rules 2 "$(iptables-save | grep -c veth-alice)"
same marks "" "$(marks)"
EOF
}

@test "rules that stop had no process for are removed by the next stop" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
injected clone,?vfork:error=EAGAIN kivctl stop alice
same status 0 "$status"
same stderr "fork() failed: Resource temporarily unavailable
fork() failed: Resource temporarily unavailable" "$err"
kivctl stop alice
same "marks left" "" "$(marks)"
same "rules left" "" "$(iptables-save | grep veth || true)"
EOF
}

@test "an iptables that always succeeds does not delay the start after a killed one" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice
mark alice
record iptables 'exit 0'
timeout -s KILL 60 kivctl start alice
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "a start that fails after an interrupted stop leaves no packet rules behind" {
    for failure in "clone:error=EAGAIN|fork() failed: Resource temporarily unavailable" \
        "unshare:error=ENOMEM|no new net namespace was created"; do
        export failure
        in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
capture strace -o /tmp/trace -e inject=clone,?vfork:signal=KILL:when=1 kivctl stop alice
same "rules after the killed stop" 2 "$(iptables-save | grep -c veth-alice)"
injected "${failure%%|*}" kivctl start alice
same "status with $failure" 71 "$status"
same "last line with $failure" "kivctl: ${failure#*|}" "$(tail -1 <<<"$err")"
same "rules after $failure" "" "$(iptables-save | grep veth-alice || true)"
runs_again alice
EOF
    done
}

@test "a start that cannot remove the rules of an interrupted stop adds none" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
capture strace -o /tmp/trace -e inject=clone,?vfork:signal=KILL:when=1 kivctl stop alice
record iptables 'exit 4'
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: veth-alice: cannot remove the packet rules of an interrupted run" "$err"
same "marks left" trusted.kiv.unfinished.alice "$(marks)"
rm -r /tmp/recorded
runs_again alice
EOF
}

@test "the next start or stop removes the interface pair that an interrupted start left" {
    for next in start stop; do
        export next
        in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'case $* in *netns*) kill -KILL "$PPID"; exit ;; esac; exec $real "$@"'
refused kivctl start alice
rm -r /tmp/recorded
test -e /sys/class/net/veth-alice
test -e /sys/class/net/vpeer-alice
if [ "$next" = stop ]; then
    fails 0 kivctl stop alice
    refused test -e /sys/class/net/veth-alice
    same "marks left" "" "$(marks)"
fi
runs_again alice
EOF
    done
}

@test "a pair that ip failed to move is removed by the next stop, or by a start that finds no network" {
    for next in start stop; do
        export next
        in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'case $* in *netns*) exit 2 ;; esac; exec $real "$@"'
kivctl start alice
rm -r /tmp/recorded
same "who is inside" alice "$(kivctl exec alice <<<'id -un')"
if [ "$next" = stop ]; then
    kivctl stop alice
    refused test -e /sys/class/net/veth-alice
else
    umount /run/kiv/alice@net
fi
runs_again alice
EOF
    done
}

@test "rules that iptables failed to remove are removed by the next stop or start" {
    for next in start stop; do
        export next
        in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
record iptables 'exit 4'
capture kivctl stop alice
same "status of stop" 0 "$status"
same "files left" "" "$(ls /run/kiv)"
same "marks left" trusted.kiv.unfinished.alice "$(marks)"
rm -r /tmp/recorded
same "rules left" 2 "$(iptables-save | grep -c veth-alice)"
[ "$next" = start ] || kivctl stop alice
runs_again alice
EOF
    done
}

@test "a stop whose network has no address any more removes everything except the rule with that address" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
sed -i 's:/30:/32:' "$registry"
capture kivctl stop alice
same status 71 "$status"
[[ $err == "kivctl: veth-alice: cannot remove the rule for the database: "* ]]
same "lines of stderr" 1 "$(wc -l <<<"$err")"
same "files left" "" "$(ls /run/kiv)"
same "marks left" trusted.kiv.unfinished.alice "$(marks)"
same "rules left" 1 "$(iptables-save | grep -c veth-alice)"
sed -i 's:/32:/30:' "$registry"
kivctl stop alice
same "rules left by the next" "" "$(iptables-save | grep veth || true)"
runs_again alice
EOF
}
