#!/usr/bin/env bats
# How stop treats processes and files, and what it prints, without failures.
load helpers
load with_residents

@test "processes that end on SIGTERM are listed once each and their container is gone after two seconds" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt sleep 100; first=$pid
resident alice net,ipc,mnt sleep 100; second=$pid
timed kivctl stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30" "$out"
same stderr "alice: terminating processes: $first, $second" "$err"
at_least 2000
refused runs "$first"
refused runs "$second"
same "files left" "" "$(ls /run/kiv)"
same "mounts left" "" "$(mounted alice)"
EOF
}

@test "a container without processes is stopped at once and leaves nothing" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice >/dev/null
before=$(settled_state)
refused grep -e veth -e alice@ <<<"$before"
kivctl start alice
refused test "$before" = "$(state)"
timed kivctl stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
sooner_than 2000
same "state of the host" "$before" "$(settled_state)"
EOF
}

@test "a process that ignores SIGTERM keeps its container, and a later stop can try again" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
before=$(state)
resident alice net,ipc,mnt env --ignore-signal=TERM sleep 100; stubborn=$pid
resident alice net,ipc,mnt sleep 100; gentle=$pid
timed kivctl stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30" "$out"
same stderr "alice: terminating processes: $stubborn, $gentle
still processes left, aborting." "$err"
at_least 2000
runs "$stubborn"
refused runs "$gentle"
same "state of the host" "$before" "$(state)"
enter alice test -w /home/alice
kill -KILL "$stubborn"
until_ended "$stubborn"
capture kivctl stop alice
same "stderr of the second stop" "" "$err"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "processes in different namespaces are listed in the order of the kinds" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net sleep 100; net=$pid
resident alice ipc sleep 100; ipc=$pid
resident alice mnt sleep 100; mnt=$pid
resident alice net,ipc,mnt sleep 100; all=$pid
capture kivctl stop alice
same stderr "alice: terminating processes: $ipc, $all, $mnt, $net" "$err"
for pid in "$net" "$ipc" "$mnt" "$all"; do refused runs "$pid"; done
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "processes of other accounts and of the host are not signalled" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a 2>/dev/null
resident bob net,ipc,mnt sleep 100; bobs=$pid
setpriv --reuid alice --regid "$(id -g alice)" --init-groups sleep 100 & outside=$!
resident alice net,ipc,mnt sleep 100; inside=$pid
capture kivctl stop alice
same stderr "alice: terminating processes: $inside" "$err"
runs "$bobs"
runs "$outside"
same "bob's live namespaces" $'net\nipc\nmnt' "$(mounted bob)"
same "files left" $'bob@ipc\nbob@mnt\nbob@net' "$(ls /run/kiv)"
same "rules left" "veth-bob veth-bob" "$(iptables-save | grep -o 'veth-[a-z]*' | xargs)"
same "address seen outside" 192.0.2.2 "$(enter bob bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "a process whose first thread has ended is stopped as well" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt /usr/bin/python3 -c '
import ctypes, threading, time
threading.Thread(target=time.sleep, args=(100,)).start()
ctypes.CDLL(None).pthread_exit(None)'
while stat -L "/proc/$pid/ns/net" >/dev/null 2>&1; do sleep 0.01; done
same "threads" 2 "$(find "/proc/$pid/task" -mindepth 1 -maxdepth 1 | wc -l)"
capture kivctl stop alice
same stderr "alice: terminating processes: $pid" "$err"
refused test -e "/proc/$pid"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "a process that is started after the search is neither signalled nor waited for" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt perl -e '
    $| = 1;
    $SIG{TERM} = sub {
        my $child = fork;
        exec("sleep", "100") if $child == 0;
        print "$child\n";
        exit;
    };
    print "ready\n";
    sleep 1 while 1;'
said ready
timed kivctl stop alice
same status 0 "$status"
same stderr "alice: terminating processes: $pid" "$err"
at_least 2000
late=$(tail -1 /tmp/said)
runs "$late"
same "files left" "" "$(ls /run/kiv)"
# it keeps the network namespace, and so the interface's name, until it ends
capture kivctl start alice
same "stderr of a start" "kivctl: veth-alice: already exists!" "$err"
kill -KILL "$late" # SIGKILL, because perl's handlers run with the signal blocked
until_ended "$late"
capture kivctl start alice
same "stderr of a start" "" "$err"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "a process that continuously starts others is stopped with those that were found" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt perl -e '
    $SIG{CHLD} = "IGNORE";
    while (1) {
        if (fork == 0) { select undef, undef, undef, 0.05; exit }
        select undef, undef, undef, 0.01;
    }'
capture kivctl stop alice
same status 0 "$status"
grep -qxE "alice: terminating processes: $pid(, [0-9]+)*" <<<"$err"
same "files left" "" "$(ls /run/kiv)"
refused runs "$pid"
EOF
}

@test "a zombie counts as left, and is not found again" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
perl -e '
    if (fork == 0) { exec "nsenter", "--net=/run/kiv/alice\@net", "sleep", "100" }
    sleep 100' & parent=$!
until pid=$(pgrep -P "$parent" -x sleep); do sleep 0.01; done
timed kivctl stop alice
same status 0 "$status"
same stderr "alice: terminating processes: $pid
still processes left, aborting." "$err"
at_least 2000
same "state of the process" Z "$(awk '{ print $3 }' "/proc/$pid/stat")"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
# a zombie has no namespaces
timed kivctl stop alice
same stderr "" "$err"
sooner_than 2000
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "debug mode prints each file" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
capture kivctl -d stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
Unmounted and deleted /run/kiv/alice@ipc
Unmounted and deleted /run/kiv/alice@mnt
Unmounted and deleted /run/kiv/alice@net" "$out"
same stderr "" "$err"
EOF
}

@test "only iptables runs, after the network's file is removed" {
    with_residents <<'EOF'
account elevencharx 100.64.7.77/24
kivctl start elevencharx
touch /run/kiv/elevencharx@cgroup # it is handled after the network
record ip
record sysctl
record iptables 'ls /run/kiv >>/tmp/calls; exec $real "$@"'
capture kivctl stop elevencharx
same status 0 "$status"
same stderr "" "$err"
same "tools called" "iptables -D INPUT -i veth-iDbKxq-F9 -d 100.64.0.0/10 -j REJECT
elevencharx@cgroup
iptables -t nat -D PREROUTING -i veth-iDbKxq-F9 -p tcp -d 100.64.7.1 --dport 3306 -j DNAT --to-destination 127.0.0.1:3306
elevencharx@cgroup" "$(cat /tmp/calls)"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "stopping all accounts follows the registry's order" {
    with_residents <<'EOF'
account bob 100.64.0.8/30
account alice 100.64.0.4/30
kivctl start -a 2>/dev/null
resident alice net,ipc,mnt sleep 100; alices=$pid
resident bob net,ipc,mnt sleep 100; bobs=$pid
timed kivctl stop -a
same status 0 "$status"
same stdout "stopping container: bob, network:100.64.0.8/30
stopping container: alice, network:100.64.0.4/30" "$out"
same stderr "bob: terminating processes: $bobs
alice: terminating processes: $alices" "$err"
at_least 4000
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "stopping a container that does not run is harmless" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
timed kivctl stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
sooner_than 2000
refused test -e /run/kiv
kivctl start alice
kivctl stop alice
before=$(settled_state)
capture kivctl -d stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
same "state of the host" "$before" "$(state)"
EOF
}

@test "an account that is not in the registry is not configured, and neither is one without a name" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
before=$(state)
for name in bob ""; do
    capture kivctl stop "$name"
    same status 71 "$status"
    same stdout "" "$out"
    same stderr "kivctl: KIV not configured for requested user" "$err"
done
same "state of the host" "$before" "$(state)"
EOF
}

@test "an account that is listed twice is stopped twice" {
    with_residents <<'EOF'
account alice 100.64.0.4/30
echo "alice net=100.64.0.4/30" >>"$registry"
kivctl start alice
capture kivctl -d stop alice
same status 0 "$status"
same stdout "stopping container: alice, network:100.64.0.4/30
Unmounted and deleted /run/kiv/alice@ipc
Unmounted and deleted /run/kiv/alice@mnt
Unmounted and deleted /run/kiv/alice@net
stopping container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
EOF
}
