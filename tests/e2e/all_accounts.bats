#!/usr/bin/env bats
# The helper of kivctl.service that starts and stops the containers of all accounts, several at
# once.
load helpers
export all_accounts=$project/dist/systemd/all-accounts

# accounts COUNT: creates that many, named a1, a2 and so on.
accounts() {
    local number
    for ((number = 1; number <= $1; number++)); do
        account "a$number" "100.64.0.$((number * 4))/30"
    done
}

# counted: uses a kivctl that records in /tmp/order when it begins and ends.
counted() {
    printf '#!/bin/bash\necho begin >>/tmp/order\nkivctl "$@"\nstatus=$?\necho end >>/tmp/order\nexit $status\n' >/tmp/counted
    chmod +x /tmp/counted
}

# most: prints how many ran at the same time.
most() {
    awk '/begin/ { if (++now > most) most = now } /end/ { now-- } END { print most }' /tmp/order
}

# resident NAME [COMMAND]: starts a process in the account's container.
resident() {
    enter_as_root "$1" bash -c "${2:-exec sleep 1000}" </dev/null >/dev/null 2>&1 3>&- &
}
export -f accounts counted most resident

@test "all accounts are started and stopped, and never more at once than the limit" {
    in_host <<'EOF'
accounts 5
counted
capture "$all_accounts" start --program /tmp/counted --at-once 2
same "status" 0 "$status"
same "stderr" "" "$err"
same "started" "$(sed 's/^/starting container: /; s/ net=/, network:/' "$registry")" "$(grep '^starting' <<<"$out" | sort)"
for name in a1 a2 a3 a4 a5; do
    same "mounted of $name" "net ipc mnt" "$(mounted "$name" | xargs)"
    resident "$name"
done
same "at once" 2 "$(most)"
: >/tmp/order
sleep 1 # the processes are inside
capture "$all_accounts" stop --program /tmp/counted
same "status" 0 "$status"
same "stderr" "" "$err"
same "left" "" "$(ls /run/kiv)"
(($(most) >= 2)) # each stop waits two seconds
EOF
}

@test "an account that cannot be started is named with its reason, and the others are started" {
    in_host <<'EOF'
account alice 100.64.0.4/30
echo "ghost net=100.64.0.8/30" >>"$registry"
account bob 100.64.0.12/30
capture "$all_accounts" start
same "status" 71 "$status"
same "stderr" "all-accounts: could not start: ghost" "$err"
same "reason" 1 "$(grep -c '^kivctl: ghost: unknown user$' <<<"$out")"
for name in alice bob; do
    same "mounted of $name" "net ipc mnt" "$(mounted "$name" | xargs)"
done
EOF
}

@test "a start that failed while others ran is tried again alone" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
record ip 'case $* in *veth-bob*) mkdir /tmp/tried 2>/dev/null && exit 1 ;; esac; exec $real "$@"'
capture "$all_accounts" start
same "status" 0 "$status"
same "messages" "" "$err"
same "mounted of bob" "net ipc mnt" "$(mounted bob | xargs)"
EOF
}

@test "a process that stays is named, and the other accounts are stopped" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a 2>/dev/null
resident alice 'trap "" TERM; touch /tmp/there; while :; do sleep 1000; done'
stays=$!
resident bob
sleep 1
capture "$all_accounts" stop
same "status" 71 "$status"
same "stderr" "all-accounts: could not stop: alice" "$err"
[[ $out == *"still processes left, aborting."* ]]
same "of bob" "" "$(mounted bob)"
same "of alice" "net ipc mnt" "$(mounted alice | xargs)"
kill -KILL "$stays"
EOF
}

@test "a process that ends at the second request is ended" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice 'trap "trap - TERM" TERM; while :; do sleep 0.1; done'
sleep 1
capture "$all_accounts" stop
same "status and stderr" "0 " "$status $err"
same "left" "" "$(ls /run/kiv)"
EOF
}

@test "an account that hangs is abandoned, and the others are started" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
record ip 'case $* in *veth-alice*) exec sleep 1000 ;; esac; exec $real "$@"'
capture "$all_accounts" start --limit 10 --at-once 1
same "status" 71 "$status"
same "stderr" "all-accounts: could not start: alice" "$err"
grep -qx 'all-accounts: alice: not done within 10 seconds' <<<"$out"
same "of bob" "net ipc mnt" "$(mounted bob | xargs)"
EOF
}

@test "the registry is read as kivctl reads it" {
    in_host <<'EOF'
account alice
account bob
printf ' \t# carol\n\n\v bob\tnet=100.64.0.8/30 \r\nalice net=100.64.0.4/30\n  bob  net=100.64.0.8/30' >"$registry"
capture "$all_accounts" start --at-once 1
same "status and stderr" "0 " "$status $err"
same "started" "bob bob alice" "$(sed -n 's/^starting container: \([a-z]*\),.*/\1/p' <<<"$out" | xargs)"
rm "$registry"
capture "$all_accounts" stop
same "without a registry" "71 all-accounts: cannot read $registry" "$status $err"
EOF
}

@test "a wrong call is refused" {
    in_host <<'EOF'
for arguments in "" restart "start --at-once 0" "stop --at-once" "stop --limit x" "start alice"; do
    # shellcheck disable=SC2086 # several words
    fails 64 "$all_accounts" $arguments 2>/dev/null
done
EOF
}

@test "in the journal, progress, errors and the expected line have their priorities" {
    in_host <<'EOF'
accounts 2
echo ghost >>"$registry"
: >/tmp/log
export JOURNAL_STREAM
JOURNAL_STREAM=$(stat --dereference --format %d:%i /tmp/log)
fails 71 "$all_accounts" start --at-once 1 >>/tmp/log 2>&1
rmdir /home/a1/tmp
fails 71 "$all_accounts" stop --at-once 1 >>/tmp/log 2>&1
same "log" '<6>starting container: a1, network:100.64.0.4/30
<6>starting container: a2, network:100.64.0.8/30
<7>umount(kiv) failed: Device or resource busy
<6>starting container: ghost, network:
<3>kivctl: ghost: unknown user
<3>all-accounts: could not start: ghost
<6>stopping container: a1, network:100.64.0.4/30
<6>stopping container: a2, network:100.64.0.8/30
<6>stopping container: ghost, network:
<3>kivctl: ghost: unknown user
<3>all-accounts: could not stop: ghost' "$(cat /tmp/log)"
sed -i /ghost/d "$registry"
: >/tmp/log
"$all_accounts" start --at-once 1 >>/tmp/log 2>&1
same "a warning" "<4>mount(/home/a1/tmp) to /tmp failed: No such file or directory" "$(grep '^<4' /tmp/log)"
capture "$all_accounts" stop --at-once 1
same "elsewhere without" "stopping container: a1, network:100.64.0.4/30" "$(head -n 1 <<<"$out")"
EOF
}
