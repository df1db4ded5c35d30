#!/usr/bin/env bats
# exec beside other runs: nobody enters a container while one is built.
load helpers

@test "exec waits while the runtime directory is locked, and enters as soon as it is free" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
mkfifo /tmp/held
flock --exclusive /run/kiv bash -c 'echo >/tmp/held; sleep 1; echo free >>/tmp/order' &
read -r </tmp/held
kivctl exec alice <<<'echo entered' >>/tmp/order
same order $'free\nentered' "$(cat /tmp/order)"
wait
EOF
}

@test "exec gives up after five seconds of waiting, before it has joined anything" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
exec {lock}</run/kiv
flock --exclusive "$lock"
begin=${EPOCHREALTIME/./}
injected setns:error=EIO kivctl exec alice <<<'echo a shell'
waited=$(((${EPOCHREALTIME/./} - begin) / 1000))
same status 71 "$status"
same stdout "Switching into container 'alice'..." "$out"
same stderr "kivctl: alice: containers are being started or stopped, try again later" "$err"
((waited >= 4900 && waited < 8000))
refused grep -E 'setns|cgroup.procs' /tmp/trace
EOF
}

@test "a caller that blocks or ignores the alarm signal does not make exec wait for ever" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
exec {lock}</run/kiv
flock --exclusive "$lock"
fails 71 timeout 20 env --block-signal=ALRM --ignore-signal=ALRM kivctl exec alice </dev/null 2>/dev/null
flock --unlock "$lock"
EOF
}

@test "the lock is free while the shell runs" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
mkfifo /tmp/commands /tmp/answers
kivctl exec alice </tmp/commands >/tmp/answers &
exec {commands}>/tmp/commands {answers}</tmp/answers
echo 'echo in' >&"$commands"
read -r line <&"$answers"
same shell in "$line"
flock --exclusive --nonblock /run/kiv true
exec {commands}>&-
wait
EOF
}

@test "several may hold the lock and enter at once" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a >/dev/null 2>&1
exec {lock}</run/kiv
flock --shared "$lock"
for ((i = 0; i < 10; i++)); do
    kivctl exec alice <<<"echo alice $i; sleep 0.1" >"/tmp/alice.$i" 2>&1 &
    kivctl exec bob <<<"echo bob $i; sleep 0.1" >"/tmp/bob.$i" 2>&1 &
done
wait
for ((i = 0; i < 10; i++)); do
    same "alice's shell" "alice $i" "$(cat "/tmp/alice.$i")"
    same "bob's shell" "bob $i" "$(cat "/tmp/bob.$i")"
done
EOF
}

@test "a container that is being built is entered when its root is complete" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start alice >/dev/null
# the child's own calls come after the namespaces are held, and before it has its root
record ip 'sleep 0.2; exec "$real" "$@"'
kivctl start bob >/dev/null 2>&1 & start=$!
is_held() { [ "$(mounted bob)" = $'net\nipc\nmnt' ]; }
eventually is_held
kill -0 "$start"
during=$(kivctl exec bob <<<'cat "/proc/$$/mountinfo"')
wait "$start"
same "mounts seen" "$(kivctl exec bob <<<'cat "/proc/$$/mountinfo"')" "$during"
refused grep /run/kiv <<<"$during"
EOF
}

@test "a start of one account and exec into another get along" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start alice >/dev/null
kivctl start bob >/tmp/start 2>&1 & start=$!
same shell in "$(kivctl exec alice <<<'echo in')"
wait "$start"
same shell in "$(kivctl exec bob <<<'echo in')"
EOF
}

@test "without a lock that the kernel refuses nobody enters" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
injected flock:error=ENOLCK kivctl exec alice <<<'echo a shell'
same status 71 "$status"
same stderr "kivctl: /run/kiv: cannot lock: No locks available" "$err"
refused grep -E 'setns|cgroup.procs' /tmp/trace
EOF
}
