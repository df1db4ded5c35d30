#!/usr/bin/env bats
# Failures of stop: its messages, what it leaves, and what it must not take for the container's.
load helpers
load with_residents

@test "a busy namespace file is kept with its rules, and the others are removed" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
rules=$(iptables-save | grep veth)
exec {holder}</run/kiv/alice@net
capture kivctl -d stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
Unmounted and deleted /run/kiv/alice@ipc
Unmounted and deleted /run/kiv/alice@mnt" "$out"
same stderr "Cannot unmount /run/kiv/alice@net: Device or resource busy" "$err"
same "live namespaces" net "$(mounted alice)"
same "files left" alice@net "$(ls /run/kiv)"
same "rules left" "$rules" "$(iptables-save | grep veth)"
exec {holder}<&-
capture kivctl stop alice
same "stderr of the second stop" "" "$err"
same "files left by it" "" "$(ls /run/kiv)"
same "rules left by it" "" "$(iptables-save | grep veth || true)"
EOF
}

@test "a busy file of another kind keeps no rules" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
# shellcheck disable=SC2034 # kept open
exec {holder}</run/kiv/alice@ipc
capture kivctl stop alice
same status 0 "$status"
same stderr "Cannot unmount /run/kiv/alice@ipc: Device or resource busy" "$err"
same "files left" alice@ipc "$(ls /run/kiv)"
same "rules left" "" "$(iptables-save | grep veth || true)"
EOF
}

@test "stale files are deleted without a message, and the runner reports that the rules are missing" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice
touch /run/kiv/alice@{ipc,mnt,net}
capture kivctl -d stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
Unmounted and deleted /run/kiv/alice@ipc
Unmounted and deleted /run/kiv/alice@mnt
Unmounted and deleted /run/kiv/alice@net" "$out"
same "exit-code lines" "exit code 1: iptables -D INPUT -i veth-alice -d 100.64.0.0/10 -j REJECT
exit code 1: iptables -t nat -D PREROUTING -i veth-alice -p tcp -d 100.64.0.5 --dport 3306 -j DNAT --to-destination 127.0.0.1:3306" \
    "$(grep '^exit code' <<<"$err")"
refused grep -v -e '^exit code' -e ^iptables <<<"$err"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "without a network file the rules are left alone" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
umount /run/kiv/alice@net
rm /run/kiv/alice@net
record iptables
capture kivctl stop alice
same status 0 "$status"
same stderr "" "$err"
refused test -e /tmp/calls
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "when one rule is missing the other is still deleted" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
iptables -D INPUT -i veth-alice -d 100.64.0.0/10 -j REJECT
capture kivctl stop alice
same status 0 "$status"
same "exit-code lines" "exit code 1: iptables -D INPUT -i veth-alice -d 100.64.0.0/10 -j REJECT" \
    "$(grep '^exit code' <<<"$err")"
same "rules left" "" "$(iptables-save | grep veth || true)"
EOF
}

@test "without iptables the container is stopped, and the missing tool is reported" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
ln -s "$(command -v kivctl)" /tmp/kivctl
capture env PATH=/tmp kivctl stop alice
same status 0 "$status"
same stderr "ERROR during execvp: No such file or directory
exit code 255: iptables -D INPUT -i veth-alice -d 100.64.0.0/10 -j REJECT
ERROR during execvp: No such file or directory
exit code 255: iptables -t nat -D PREROUTING -i veth-alice -p tcp -d 100.64.0.5 --dport 3306 -j DNAT --to-destination 127.0.0.1:3306" "$err"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "on a read-only runtime directory files are unmounted but stay" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
mount -o remount,bind,ro /run/kiv
capture kivctl -d stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
Unmounted and deleted /run/kiv/alice@ipc
Unmounted and deleted /run/kiv/alice@mnt
Unmounted and deleted /run/kiv/alice@net" "$out"
same stderr "Cannot delete /run/kiv/alice@ipc: Read-only file system
Cannot delete /run/kiv/alice@mnt: Read-only file system
Cannot delete /run/kiv/alice@net: Read-only file system" "$err"
same "live namespaces" "" "$(mounted alice)"
same "rules left" "" "$(iptables-save | grep veth || true)"
mount -o remount,bind,rw /run/kiv
settled_state >/dev/null
capture kivctl start alice
same "stderr of a start" "" "$err"
same "live namespaces of it" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "an unmount that is refused keeps the file" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
injected umount2:error=EPERM -P /run/kiv/alice@mnt kivctl stop alice
same status 0 "$status"
same stderr "Cannot unmount /run/kiv/alice@mnt: Operation not permitted" "$err"
same "files left" alice@mnt "$(ls /run/kiv)"
same "live namespaces" mnt "$(mounted alice)"
EOF
}

@test "of two mounts on a file the upper one is removed first" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
mount --bind /run/kiv/alice@ipc /run/kiv/alice@ipc
capture kivctl stop alice
same status 0 "$status"
same stderr "Cannot delete /run/kiv/alice@ipc: Device or resource busy" "$err"
capture kivctl stop alice
same "stderr of the second stop" "" "$err"
same "files left by it" "" "$(ls /run/kiv)"
EOF
}

@test "if the processes cannot be listed nothing is stopped" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a 2>/dev/null
before=$(state)
injected openat:error=EMFILE -P /proc kivctl stop alice
same status 71 "$status"
same stderr "kivctl: Cannot open /proc: Too many open files" "$err"
injected openat:error=EMFILE -P /proc kivctl stop -a
same status 71 "$status"
same stderr "kivctl: alice: Cannot open /proc: Too many open files
bob: Cannot open /proc: Too many open files" "$err"
injected getdents64:error=EIO:when=2 -P /proc kivctl stop alice
same status 71 "$status"
same stderr "kivctl: Cannot read /proc: Input/output error" "$err"
same "state of the host" "$before" "$(state)"
EOF
}

@test "stop -a stops the accounts beside a broken one and fails with a line for it" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
account bob
account carol 100.64.0.12/30
account dave 100.64.0.16/30
kivctl start -a 2>/dev/null || true
userdel carol
sed -i s,100.64.0.16/30,100.64.0.16/32, "$registry"
echo "root net=100.64.0.20/30" >>"$registry"
capture kivctl stop -a
same status 71 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
stopping container: bob, network:
stopping container: carol, network:100.64.0.12/30
stopping container: dave, network:100.64.0.16/32
stopping container: root, network:100.64.0.20/30" "$out"
same stderr "kivctl: bob: malformed network ''
carol: carol: unknown user
dave: veth-dave: cannot remove the rule for the database: network 100.64.0.16/32 has no address number 1
root: root: cannot create container for uid 0" "$err"
same "alice's live namespaces" "" "$(mounted alice)"
same "dave's live namespaces" "" "$(mounted dave)"
EOF
}

@test "a broken account given by name fails with its own message" {
    with_residents <<'EOF'
account alice
capture kivctl stop alice
same status 71 "$status"
same stdout "stopping container: alice, network:" "$out"
same stderr "kivctl: malformed network ''" "$err"
echo "al@ice net=100.64.0.4/30" >"$registry"
capture kivctl stop al@ice
same status 71 "$status"
same stderr "kivctl: al@ice: invalid character '@' in user name" "$err"
rm "$registry"
capture kivctl stop -a
same status 71 "$status"
same stderr "kivctl: cannot open $registry: No such file or directory" "$err"
EOF
}

@test "a network with one address is enough to stop" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
echo "alice net=100.64.0.4/31" >"$registry"
capture kivctl stop alice
same status 0 "$status"
same stderr "" "$err"
same "rules left" "" "$(iptables-save | grep veth || true)"
EOF
}

@test "processes left in one account's container do not make stop -a fail" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a 2>/dev/null
resident alice net,ipc,mnt env --ignore-signal=TERM sleep 100
capture kivctl stop -a
same status 0 "$status"
same stderr "alice: terminating processes: $pid
still processes left, aborting." "$err"
same "files left" $'alice@ipc\nalice@mnt\nalice@net' "$(ls /run/kiv)"
kill -KILL "$pid"
EOF
}

@test "a cgroup file is treated like the others" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
touch /run/kiv/alice@cgroup
unshare --cgroup sleep 100 & pid=$!
until [ "$(<"/proc/$pid/comm")" = sleep ]; do sleep 0.01; done
mount --bind "/proc/$pid/ns/cgroup" /run/kiv/alice@cgroup
capture kivctl -d stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
Unmounted and deleted /run/kiv/alice@ipc
Unmounted and deleted /run/kiv/alice@mnt
Unmounted and deleted /run/kiv/alice@net
Unmounted and deleted /run/kiv/alice@cgroup" "$out"
same stderr "alice: terminating processes: $pid" "$err"
refused runs "$pid"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "a file of the host's own namespace ends no process" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
sleep 100 & outside=$!
touch /run/kiv/alice@cgroup
mount --bind /proc/self/ns/cgroup /run/kiv/alice@cgroup
umount /run/kiv/alice@ipc
mount --bind /proc/self/ns/ipc /run/kiv/alice@ipc
timed kivctl stop alice
same status 0 "$status"
same stderr "" "$err"
sooner_than 2000
runs "$outside"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "a plain file with the inode number of a namespace ends no process" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start bob
resident bob net,ipc,mnt sleep 100; bobs=$pid
touch /run/kiv/alice@ipc
number=$(printf '%016x' "$(stat -Lc %i /run/kiv/bob@ipc)" | fold -w 2 | tac | tr -d '\n')
# the number begins at the 33rd byte of the structure of statx(2)
answer=$(printf '%064d' 0)$number
injected "statx:poke_exit=@arg5=$answer" -P /run/kiv/alice@ipc kivctl -d stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
Unmounted and deleted /run/kiv/alice@ipc" "$out"
same stderr "" "$err"
runs "$bobs"
same "files left" $'bob@ipc\nbob@mnt\nbob@net' "$(ls /run/kiv)"
EOF
}

@test "stop from inside one of the container's namespaces does not signal its caller" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice ipc,mnt sleep 100
capture nsenter --ipc=/run/kiv/alice@ipc bash -c 'kivctl stop alice; echo caller is there'
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
caller is there" "$out"
same stderr "alice: terminating processes: $pid" "$err"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "stop from inside the container's network finds neither its processes nor the host's rules" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net sleep 100
capture nsenter --net=/run/kiv/alice@net bash -c 'kivctl stop alice; echo caller is there'
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
caller is there" "$out"
same "exit-code lines" 2 "$(grep -c '^exit code 1: iptables .*-D .*-i veth-alice' <<<"$err")"
runs "$pid"
same "files left" "" "$(ls /run/kiv)"
same "rules left" 2 "$(iptables-save | grep -c veth-alice)"
EOF
}

@test "without pidfds processes are signalled by their numbers" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt sleep 100
injected pidfd_open:error=ENOSYS kivctl stop alice
same status 0 "$status"
same stderr "alice: terminating processes: $pid" "$err"
grep -qE "kill\($pid, SIGTERM\)" /tmp/trace
refused grep -q pidfd_send_signal /tmp/trace
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "a process that has just ended is listed and not signalled" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt sleep 100
injected pidfd_open:error=ESRCH kivctl stop alice
same status 0 "$status"
same stderr "alice: terminating processes: $pid
still processes left, aborting." "$err"
refused grep -qE "kill\(|pidfd_send_signal" /tmp/trace
runs "$pid"
EOF
}

@test "each number is written before its process is signalled, and the wait takes twenty passes" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt sleep 100; first=$pid
resident alice net,ipc,mnt sleep 100; second=$pid
capture strace -o /tmp/trace -e trace=write,pidfd_send_signal,clock_nanosleep kivctl stop alice
same status 0 "$status"
same "order of calls" "write(2, \"alice: terminating processes: \",
write(2, \"$first\",
pidfd_send_signal
write(2, \", $second\",
pidfd_send_signal
write(2, \"\n\"," "$(grep -oE '^write\(2, "[^"]*",|^pidfd_send_signal' /tmp/trace)"
same "passes of a tenth of a second" 20 "$(grep -c 'tv_nsec=100000000}' /tmp/trace)"
EOF
}
