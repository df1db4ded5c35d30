#!/usr/bin/env bats
# exec at the same time as other runs: nobody enters a container while it is being built.
load helpers

@test "exec waits while the account is locked, and enters as soon as it is free" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
with_lock alice exclusive bash -c 'touch /tmp/held; sleep 1; echo free >>/tmp/order' &
eventually test -e /tmp/held
kivctl exec alice <<<'echo entered' >>/tmp/order
same order $'free\nentered' "$(cat /tmp/order)"
wait
EOF
}

@test "exec says once that it waits, and gives up after five seconds, before it has joined anything" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
with_lock alice exclusive bash -c 'touch /tmp/held; until test -e /tmp/free; do sleep 0.01; done' &
eventually test -e /tmp/held
begin=${EPOCHREALTIME/./}
injected setns:error=EIO kivctl exec alice <<<'echo a shell'
waited=$(((${EPOCHREALTIME/./} - begin) / 1000))
same status 71 "$status"
same stdout "Switching into container 'alice'..." "$out"
same stderr "alice: waiting for a start or stop of this account
kivctl: alice: containers are being started or stopped, try again later" "$err"
((waited >= 4900))
refused grep -E 'setns|cgroup.procs' /tmp/trace
touch /tmp/free
EOF
}

@test "a caller that blocks or ignores the alarm signal does not make exec wait for ever" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
with_lock alice exclusive bash -c 'touch /tmp/held; until test -e /tmp/free; do sleep 0.01; done' &
eventually test -e /tmp/held
fails 71 timeout 20 env --block-signal=ALRM --ignore-signal=ALRM kivctl exec alice </dev/null 2>/dev/null
touch /tmp/free
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
timeout 5 bash -c "$(declare -f with_lock); with_lock alice exclusive true"
exec {commands}>&-
wait
EOF
}

@test "several may hold the lock and enter at once" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a >/dev/null 2>&1
with_lock alice shared bash -c 'touch /tmp/held; until test -e /tmp/free; do sleep 0.01; done' &
eventually test -e /tmp/held
for ((i = 0; i < 10; i++)); do
    kivctl exec alice <<<"echo alice $i; sleep 0.1" >"/tmp/alice.$i" 2>&1 & shells+=($!)
    kivctl exec bob <<<"echo bob $i; sleep 0.1" >"/tmp/bob.$i" 2>&1 & shells+=($!)
done
wait "${shells[@]}"
touch /tmp/free
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
# the child makes these calls after the namespaces are pinned and before its root is complete
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

@test "a start of one account does not delay exec into another" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start alice >/dev/null
record ip 'touch /tmp/half-way; until test -e /tmp/go-on; do sleep 0.01; done; exec "$real" "$@"'
kivctl start bob >/tmp/start 2>&1 & start=$!
eventually test -e /tmp/half-way
capture timeout 30 kivctl exec alice <<<'echo in'
same "alice's shell" in "$out"
same stderr "" "$err"
kill -0 "$start"
touch /tmp/go-on
wait "$start"
same "bob's shell" in "$(kivctl exec bob <<<'echo in')"
EOF
}

@test "nobody enters if the kernel refuses the lock" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
injected fcntl:error=ENOLCK kivctl exec alice <<<'echo a shell'
same status 71 "$status"
same stderr "kivctl: /run/kiv: cannot lock: No locks available" "$err"
refused grep -E 'setns|cgroup.procs' /tmp/trace
EOF
}
