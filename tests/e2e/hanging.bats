#!/usr/bin/env bats
# A start that hangs: who waits for it, how it can be ended, and what is left afterwards.
load helpers

setup_file() {
    # hang_in TOOL PATTERN: that tool creates /tmp/hangs and hangs for ever when its arguments match
    # the pattern.
    hang_in() {
        record "$1" 'case $* in '"$2"') echo $$ >/tmp/hangs; exec sleep 1000 ;; esac; exec "$real" "$@"'
    }
    # without_tools COMMAND…: runs the command with the host's own tools.
    without_tools() { PATH=${PATH#/tmp/recorded:} "$@"; }
    ended() { ! kill -0 "$1" 2>/dev/null; }
    # has_no_trace: nothing is left of alice's container, not even a mark.
    has_no_trace() {
        same "namespace files" "" "$(ls /run/kiv)"
        same marks "" "$(marks)"
        same rules "" "$(iptables-save | grep veth-alice || true)"
        eventually test ! -e /sys/class/net/veth-alice
    }
    export -f hang_in without_tools ended has_no_trace
}

@test "while one account's start hangs in a host tool, another account is started, entered and stopped" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
hang_in ip '*vpeer-alice*netns*'
kivctl start alice >/dev/null 2>&1 & start=$!
eventually test -e /tmp/hangs
for _ in 1 2; do
    capture timeout 30 kivctl start bob
    same "status of start" 0 "$status"
    capture timeout 30 kivctl exec bob <<<'id -un'
    same "bob's shell" bob "$out"
    same "stderr of exec" "" "$err"
    capture timeout 30 kivctl stop bob
    same "status of stop" 0 "$status"
    same "stderr of stop" "" "$err"
    eventually test ! -e /sys/class/net/veth-bob
done
kill -0 "$start"
EOF
}

@test "a host tool that hangs in the first start after boot delays no other account" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
hang_in ip '*route?show*'
kivctl start alice >/dev/null 2>&1 &
eventually test -e /tmp/hangs
without_tools fails 0 timeout 30 kivctl start bob
same "bob's shell" bob "$(kivctl exec bob <<<'id -un')"
EOF
}

@test "two first starts at once do not wait for each other's tools" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
hang_in ip '*route?show*'
without_tools strace -o /dev/null -e inject=mkdir:delay_exit=1000000 kivctl start alice >/tmp/out 2>/tmp/err & alices=$!
eventually test -e /run/kiv
kivctl start bob >/dev/null 2>&1 & # makes the runtime directory private, and hangs
eventually test -e /tmp/hangs
wait "$alices"
same stderr "" "$(cat /tmp/err)"
same "alice's shell" alice "$(kivctl exec alice <<<'id -un')"
EOF
}

@test "with -a an account that hangs is abandoned after ten seconds, and the others are started and stopped" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
hang_in ip '*vpeer-alice*netns*'
kivctl start alice >/dev/null 2>&1 &
eventually test -e /tmp/hangs
for command in start stop; do
    capture without_tools timeout 60 kivctl $command -a
    same "status of $command" 71 "$status"
    same "stderr of $command" "alice: waiting for another start, stop or exec of this account
kivctl: alice: alice: containers are being started or stopped, try again later" "$err"
    [ $command = stop ] || same "bob's live namespaces" $'net\nipc\nmnt' "$(mounted bob)"
done
same "bob's live namespaces after stop" "" "$(mounted bob)"
EOF
}

@test "a home that does not answer delays no other account" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
# a FUSE file system whose server reads no request
python3 -c '
import ctypes, os, time
libc = ctypes.CDLL(None, use_errno=True)
os.mknod("/dev/fuse", 0o20600, os.makedev(10, 229))
fuse = os.open("/dev/fuse", os.O_RDWR)
options = f"fd={fuse},rootmode=40000,user_id=0,group_id=0,allow_other".encode()
if libc.mount(b"silent", b"/home/alice", b"fuse", 0, options) != 0:
    raise OSError(ctypes.get_errno(), "mount")
open("/tmp/silent", "w").close()
time.sleep(60)' & server=$!
eventually test -e /tmp/silent
kivctl start alice >/tmp/alice 2>&1 & start=$!
is_held() { [ "$(mounted alice)" = $'net\nipc\nmnt' ]; }
eventually is_held
for command in start stop start; do
    fails 0 timeout 30 kivctl $command bob
    [ $command != stop ] || eventually test ! -e /sys/class/net/veth-bob
done
same "bob's shell" bob "$(kivctl exec bob <<<'id -un')"
kill -0 "$start"
kill -TERM "$start"
fails 143 wait "$start"
kill "$server"
EOF
}

@test "a run that waits for an account says so once, after two seconds, and continues when the account is free" {
    in_host <<'EOF'
account alice 100.64.0.4/30
hang_in sysctl '*veth-alice*'
kivctl start alice >/dev/null 2>&1 & start=$!
eventually test -e /tmp/hangs
without_tools kivctl start alice >/tmp/out 2>/tmp/err & second=$!
without_tools kivctl stop alice >/tmp/out.stop 2>/tmp/err.stop & third=$!
sleep 1
same "stderr after a second" "" "$(cat /tmp/err /tmp/err.stop)"
sleep 4
for file in /tmp/err /tmp/err.stop; do
    same "stderr after five seconds" "alice: waiting for another start, stop or exec of this account" "$(cat $file)"
done
kill -TERM "$start"
wait "$second"
wait "$third"
without_tools kivctl start alice
same "alice's shell" alice "$(kivctl exec alice <<<'id -un')"
EOF
}

@test "a signal to start ends it and the hanging tool, and the next start and stop repair everything" {
    for place in 'ip *link?add*' 'ip *vpeer-alice*netns*' 'sysctl *veth-alice*' 'iptables *INPUT*veth-alice*' \
        'ip *veth-alice*up*' 'ip *name*veth0' 'iptables *OUTPUT*' 'ip *route?show*'; do
        export place
        in_host <<'EOF'
account alice 100.64.0.4/30
set -m # a process group for each start
for signal in INT TERM HUP KILL; do
    for whom in alone group; do
        rm -f /tmp/hangs
        [[ $place != *route* ]] || { ! test -e /run/kiv/.lock || { umount /run/kiv; rm -r /run/kiv; iptables -t nat -F POSTROUTING; }; }
        hang_in ${place%% *} "${place#* }"
        kivctl start alice >/tmp/out 2>&1 & start=$!
        eventually test -s /tmp/hangs
        tool=$(cat /tmp/hangs)
        if [ $whom = group ]; then kill -$signal -- -$start; else kill -$signal $start; fi
        begin=${EPOCHREALTIME/./}
        fails $((128 + $(kill -l $signal))) wait $start
        (((${EPOCHREALTIME/./} - begin) / 1000 < 3000))
        eventually ended "$tool"
        rm -r /tmp/recorded
        hash -r
        if [ $whom = group ] || [[ $place = *route* ]]; then
            capture timeout 20 kivctl start alice
            same "status after $place $signal $whom" 0 "$status"
            same "alice's shell" alice "$(kivctl exec alice <<<'id -un')"
            same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
            same "rules after $place $signal $whom" 2 "$(iptables-save | grep -c veth-alice)"
        fi
        fails 0 timeout 20 kivctl stop alice
        has_no_trace
    done
done
EOF
    done
}

@test "a start whose host tool ignores signals can be ended while the tool hangs" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record iptables 'case $* in *OUTPUT*) echo $$ >/tmp/hangs; trap "" INT TERM HUP; sleep 1000 ;; esac; exec "$real" "$@"'
kivctl start alice >/dev/null 2>&1 & start=$!
eventually test -s /tmp/hangs
kill -TERM "$start"
fails 143 wait "$start"
eventually ended "$(cat /tmp/hangs)"
without_tools timeout 30 kivctl start alice
EOF
}
