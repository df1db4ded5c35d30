#!/usr/bin/env bats
# What an account can reach of other accounts and of the host from the shell of exec.
load helpers
load with_attacks

@test "another account's home, /tmp and processes are out of reach" {
    on_two_accounts <<'EOF'
echo secret | tee /home/bob/open /home/bob/tmp/open >/dev/null
chmod 755 /home/bob /home/bob/tmp
enter bob sleep 600 &
until inner=$(pgrep -u bob -x sleep); do sleep 0.01; done
outside bob sleep 601
for path in /home/bob /home/bob/open /tmp/open; do
    same "$path" ENOENT "$(inside alice '~/system_call native access @$1 0' "$path")"
    enter bob test -e "$path"
done
for process in "$inner" "$pid"; do
    same "entry" ENOENT "$(inside alice '~/system_call native access @/proc/$1 0' "$process")"
    same "signal" EPERM "$(inside alice '~/system_call native kill $1 0' "$process")"
    same "every way" "ENOENT EPERM" "$(inside alice '~/watch_process $1' "$process" |
        awk '$1 != "pidfd_open" { print $2 }' | sort -u | paste -sd' ')"
done
EOF
}

@test "another account's shared memory, semaphores and message queues are not visible" {
    on_two_accounts <<'EOF'
cp "$programs/system_call" /home/bob
on_host() { setpriv --reuid "$1" --regid "$1" --init-groups "${@:2}"; }
# try_from PLACE: bob creates objects there that everyone may use; prints what he and alice see
try_from() {
    local place=$1 program=/home/bob/system_call calls
    made() { "$place" bob ipcmk --mode 0666 "$@" | sed 's/.*: //'; }
    same "making a queue" 0 "$("$place" bob "$program" native mq_open "@$place" 0102 0666 0)"
    calls="shmat $(made --shmem 4096) 0 0x1000
semctl $(made --semaphore 1) 0 12
msgrcv $(made --queue) 0 0 0 0x800
mq_open @$place 2 0 0"
    same "bob's answers" $'0\n0\nENOMSG\n0' "$("$place" bob "$program" native <<<"$calls" | grep -o '[^ ]*$')"
    same "alice's answers" $'EINVAL\nEINVAL\nEINVAL\nENOENT' \
        "$(inside alice '~/system_call native' <<<"$calls" | grep -o '[^ ]*$')"
}
try_from enter
try_from on_host
EOF
}

@test "another account's servers are out of reach behind the firewall" {
    on_two_accounts <<'EOF'
firewall
enter bob socat TCP-LISTEN:8080,fork,reuseaddr SYSTEM:'echo bob' &
until [ "$(enter bob bash -c 'cat </dev/tcp/100.64.0.10/8080')" = bob ] 2>/dev/null; do sleep 0.01; done
capture inside alice 'timeout 2 bash -c "cat </dev/tcp/100.64.0.10/8080"'
[[ $err == *"Connection refused"* ]]
same "way out" 192.0.2.2 "$(inside alice 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "abstract sockets of the host are in another network namespace" {
    on_two_accounts <<'EOF'
socat ABSTRACT-LISTEN:server,fork SYSTEM:'echo host' &
until [ "$(socat -u ABSTRACT-CONNECT:server -)" = host ] 2>/dev/null; do sleep 0.01; done
same "an account on the host" host "$(setpriv --reuid alice --regid alice --init-groups \
    socat -u ABSTRACT-CONNECT:server -)"
capture inside alice 'socat -u ABSTRACT-CONNECT:server -'
[[ $err == *"Connection refused"* ]]
same "names in sight" "" "$(inside alice 'grep server /proc/net/unix' || true)"
EOF
}

@test "the runtime directory and the administrator's files are not visible" {
    on_two_accounts <<'EOF'
as_uid_0
for path in /run/kiv /etc/tarnwell /etc/shadow /root; do
    test -e "$path"
    for program in system_call system_call_root; do
        same "$path" ENOENT "$(inside alice '~/$1 native access @$2 0' $program "$path")"
    done
done
same "mounts of it" "" "$(inside alice 'grep /run/kiv /proc/self/mountinfo' || true)"
EOF
}

@test "a process of the account outside gives access to the host's files, with the account's permissions" {
    on_two_accounts <<'EOF'
outside alice sleep 600
own=/proc/$pid/root
outside bob sleep 600
other=/proc/$pid/root
sleep 600 &
roots=/proc/$!/root
chmod 700 /home/bob
calls="access @$own/etc/tarnwell/kiv.users 4
access @$own/root 1
access @$own/etc/shadow 4
access @$own/run/kiv 1
access @$own/home/bob 1
access @$own/etc 2
access @$other/etc/passwd 4
access @$roots/etc/passwd 4"
same answers "access @$own/etc/tarnwell/kiv.users 4 0
access @$own/root 1 EACCES
access @$own/etc/shadow 4 EACCES
access @$own/run/kiv 1 EACCES
access @$own/home/bob 1 EACCES
access @$own/etc 2 EACCES
access @$other/etc/passwd 4 ENOENT
access @$roots/etc/passwd 4 ENOENT" "$(inside alice '~/system_call native' <<<"$calls")"
EOF
}
