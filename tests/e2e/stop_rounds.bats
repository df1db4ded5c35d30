#!/usr/bin/env bats
# Stop with later or simultaneous runs: new starts, other stops, and what must be removed by then.
load helpers
load with_residents

@test "fifty rounds of start and stop leave no interface, rule, mount or file" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
kivctl stop alice >/dev/null
before=$(settled_state)
refused grep -e veth -e alice@ <<<"$before"
for round in {1..50}; do
    capture kivctl start alice
    same "stderr of start $round" "" "$err"
    same "status of start $round" 0 "$status"
    same "live namespaces of round $round" $'net\nipc\nmnt' "$(mounted alice)"
    ip -4 -o addr show veth-alice | grep -F >/dev/null 100.64.0.5/30
    capture kivctl stop alice
    same "stderr of stop $round" "" "$err"
    same "status of stop $round" 0 "$status"
done
same "state of the host" "$before" "$(settled_state)"
kivctl start alice
same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "rounds of two accounts with processes leave nothing" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a >/dev/null 2>&1
kivctl stop -a >/dev/null
before=$(settled_state)
refused grep -e veth -e alice@ <<<"$before"
for round in 1 2 3; do
    capture kivctl start -a
    same "stderr of start $round" "umount(kiv) failed: Device or resource busy" "$err"
    resident alice net,ipc,mnt socat TCP-LISTEN:8080,fork,reuseaddr SYSTEM:cat; alices=$pid
    resident bob net,ipc,mnt sleep 100; bobs=$pid
    capture kivctl stop -a
    same "stderr of stop $round" "alice: terminating processes: $alices
bob: terminating processes: $bobs" "$err"
done
same "state of the host" "$before" "$(settled_state)"
EOF
}

@test "the pair disappears shortly after the network's last process, and start waits for that" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net env --ignore-signal=TERM sleep 100
umount /run/kiv/alice@net
rm /run/kiv/alice@net
kivctl stop alice
sleep 0.3
test -e /sys/class/net/veth-alice # a process holds it
(sleep 0.3; kill -KILL "$pid") &
timed kivctl start alice
same status 0 "$status"
same stderr "" "$err"
at_least 300
same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "a mount namespace that was copied from the host's keeps no stopped container's network" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice
before=$(settled_state)
refused grep -e veth -e alice@ <<<"$before"
kivctl start alice
# as a service with private mounts that is started after the container
unshare --mount sleep 100 & copy=$!
until [ "$(<"/proc/$copy/comm")" = sleep ]; do sleep 0.01; done
grep -q /run/kiv/alice@net "/proc/$copy/mountinfo"
capture kivctl stop alice
same stderr "" "$err"
same "state of the host" "$before" "$(settled_state)"
refused grep -q /run/kiv/alice@ "/proc/$copy/mountinfo"
runs "$copy"
EOF
}

@test "several stops at once agree" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice >/dev/null
before=$(settled_state)
refused grep -e veth -e alice@ <<<"$before"
for _ in 1 2 3; do
    kivctl start alice
    stops=()
    for stop in 1 2 3 4; do
        kivctl stop alice >>/tmp/out 2>>/tmp/err & stops+=($!)
    done
    for stop in "${stops[@]}"; do wait "$stop"; done
    same "state of the host" "$before" "$(settled_state)"
done
same stdout 12 "$(grep -cx 'stopping container: alice, network:100.64.0.4/30' /tmp/out)"
same stderr "" "$(cat /tmp/err)"
EOF
}

@test "two stops that wait for the same processes remove the container once" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
# runs long enough for both to find it
resident alice net,ipc,mnt perl -e '
    $| = 1;
    $SIG{TERM} = sub { $ended = 1 };
    print "ready\n";
    sleep 1 until $ended;
    select undef, undef, undef, 1;'
said ready
kivctl stop alice >/dev/null 2>/tmp/first & first=$!
kivctl stop alice >/dev/null 2>/tmp/second & second=$!
wait "$first"
wait "$second"
same "stderr of the first" "alice: terminating processes: $pid" "$(cat /tmp/first)"
same "stderr of the second" "alice: terminating processes: $pid" "$(cat /tmp/second)"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "stop leaves a container alone that was stopped and started again during its wait" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt sleep 100
kivctl -d stop alice >/tmp/out 2>/tmp/err & waiting=$!
until_ended "$pid"
paused alice "$waiting"
kivctl stop alice >/dev/null
kivctl start alice >/dev/null
resumed "$waiting"
started=$(stat -Lc %i /run/kiv/alice@{net,ipc,mnt})
rules=$(iptables-save | grep veth)
wait "$waiting"
same "stdout of the first stop" "stopping container: alice, network:100.64.0.4/30" "$(cat /tmp/out)"
same "stderr of the first stop" "alice: terminating processes: $pid" "$(cat /tmp/err)"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "namespaces" "$started" "$(stat -Lc %i /run/kiv/alice@{net,ipc,mnt})"
same "rules" "$rules" "$(iptables-save | grep veth)"
same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "stop silently accepts that the container was stopped during its wait" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt sleep 100
kivctl -d stop alice >/tmp/out 2>/tmp/err & waiting=$!
until_ended "$pid"
paused alice "$waiting"
kivctl stop alice >/dev/null
resumed "$waiting"
wait "$waiting"
same "stdout of the first stop" "stopping container: alice, network:100.64.0.4/30" "$(cat /tmp/out)"
same "stderr of the first stop" "alice: terminating processes: $pid" "$(cat /tmp/err)"
EOF
}

@test "stop waits for a start of the account that is under way" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
with_lock alice exclusive bash -c 'touch /tmp/held; until test -e /tmp/free; do sleep 0.01; done' &
eventually test -e /tmp/held
kivctl stop alice & stop=$!
sleep 0.3
runs "$stop"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
touch /tmp/free
wait "$stop"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "stop waits for the lock again before it removes anything" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt sleep 100
kivctl stop alice 2>/dev/null & stop=$!
until_ended "$pid"
paused alice "$stop"
with_lock alice exclusive bash -c 'touch /tmp/held; until test -e /tmp/free; do sleep 0.01; done' &
eventually test -e /tmp/held
resumed "$stop"
sleep 2.3
runs "$stop"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
touch /tmp/free
wait "$stop"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "while stop waits for one account's processes another account can be started" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start alice
resident alice net,ipc,mnt sleep 100
kivctl stop alice 2>/dev/null & stop=$!
until_ended "$pid"
paused alice "$stop"
capture timeout 60 kivctl start bob
same status 0 "$status"
runs "$stop"
resumed "$stop"
wait "$stop"
same "files left" $'bob@ipc\nbob@mnt\nbob@net' "$(ls /run/kiv)"
EOF
}

@test "a start that failed half-way is cleaned up" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice
before=$(settled_state)
refused grep -e veth -e alice@ <<<"$before"
injected mount:error=ENOMEM -P /run/kiv/alice@ipc kivctl start alice
same status 71 "$status"
same "live namespaces" net "$(mounted alice)"
capture kivctl stop alice
same status 0 "$status"
same stderr "" "$err"
same "state of the host" "$before" "$(settled_state)"
EOF
}

# deliberate: stop deletes no interface, so that data which was already written still arrives
@test "a connection with unsent data keeps the pair, and the name, until it has ended" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
socat -u TCP-LISTEN:3307,reuseaddr EXEC:'sleep 100' 2>/dev/null & # it never reads
iptables -I INPUT -i veth-alice -p tcp --dport 3307 -j ACCEPT
resident alice net,ipc,mnt perl -e '
    use IO::Socket::INET;
    $| = 1;
    until ($peer = IO::Socket::INET->new("100.64.0.5:3307")) { select undef, undef, undef, 0.01 }
    $peer->blocking(0);
    1 while syswrite($peer, "x" x 65536);
    print "full\n";
    sleep 100;'
said full
kivctl stop alice 2>/dev/null
same "files left" "" "$(ls /run/kiv)"
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: veth-alice: already exists!" "$err"
ip link delete veth-alice
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
EOF
}
