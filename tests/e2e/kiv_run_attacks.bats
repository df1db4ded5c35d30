#!/usr/bin/env bats
# Attacks by an account from a command of kiv-run on the container's terminal, and against the two
# processes of kiv-run. kiv_run_relay.bats and kiv_run_terminal.bats have the attacks on the
# caller's terminal.
load helpers
load with_attacks

@test "while kiv-run -t enters the container, the account's processes there cannot access it, nor ever its relay" {
    on_two_accounts <<'EOF'
as_uid_0 watch_process
as_uid_0
relays() { [ "$(stat -c %u "/proc/$entering")" = 65534 ]; }
out_of_reach() { # WHAT PID
    local program
    for program in watch_process watch_process_root; do
        same "$program, $1" "$nothing_reached" "$(inside alice '~/$1 $2' $program "$2")"
    done
    same "entry in /proc, $1" "" "$(inside alice 'ls /proc | grep -x $1' "$2" || true)"
}

hold inside kiv-run -t alice true
same "namespace" "$(stat -Lc %i /run/kiv/alice@mnt)" "$(stat -Lc %i "/proc/$held/ns/mnt")"
same "user" 0 "$(stat -c %u "/proc/$held")"
out_of_reach "before the change of user" "$held"
same "signal" EPERM "$(inside alice '~/system_call native kill $1 9' "$held")"
eventually relays
out_of_reach "the relay" "$entering"
for program in system_call system_call_root; do
    same "signal to the relay by $program" EPERM "$(inside alice '~/$1 native kill $2 9' $program "$entering")"
done
kill -CONT "$held"
wait "$entering"

hold account kiv-run -t alice true
same "user" alice "$(awk '/^Uid:/ { print $2 }' "/proc/$held/status" | xargs id -nu)"
same "its terminals" "/dev/pts/0 /dev/pts/0" "$(readlink "/proc/$held/fd/0" "/proc/$held/fd/1" | xargs)"
out_of_reach "after the change of user" "$held"
out_of_reach "the relay, with the terminal" "$entering"
outside alice sleep 600
same "from the host" "$(sed 's/ENOENT/EACCES/' <<<"$nothing_reached")" \
    "$(setpriv --reuid alice --regid alice --init-groups "$programs/watch_process" "$held")"
kill -CONT "$held"
wait "$entering"
EOF
}

@test "a kiv-run that allows tracing can be accessed" {
    on_two_accounts <<'EOF'
hold traceable kiv-run -t alice true
# Yama may allow tracing only of children
same "ways that are open" "environ fd/0 root cwd exe ns/mnt" "$(inside alice '~/watch_process $1' "$held" |
    awk '$2 == "0" { print $1 }' | grep -E '^(environ|fd/0|root|cwd|exe|ns/mnt)$' | xargs)"
kill -CONT "$held"
wait "$entering"
EOF
}

@test "a command on the container's terminal has no more rights than a shell of exec" {
    on_two_accounts <<'EOF'
by_terminal
as_uid_0
calls="mount @none @/tmp @tmpfs 0 0
umount2 @/proc/irq 2
pivot_root @/tmp @/tmp
chroot @/tmp
unshare 0x10000000
clone 0x10000011 0 0 0 0"
same "answers to the account" "$(answered EPERM "$calls")" "$(inside alice '~/system_call native' <<<"$calls")"
same "answers to uid 0" "$(answered EPERM "$calls")" "$(inside alice '~/system_call_root native' <<<"$calls")"
inside alice 'touch ~/file'
calls="chown @/home/alice/file 0 0
setuid $(id -u bob)
setgroups 0 0
mknod @/run/node 0x2180 0x103
sethostname @other 5
vhangup"
same "answers to a set-user-ID program" "$(answered EPERM "$calls")" "$(inside alice '~/system_call_root native' <<<"$calls")"
outside alice sleep 600
answers=$(inside alice 'perl -e "$1" "${@:2}"' "$join_all" 1 "$pid" $$)
[[ $answers =~ ^"namespace EPERM "([0-9]+)$'\n'"process EPERM "([0-9]+)$ ]]
leaf=user.slice/user-$(id -u alice).slice/kiv
same "cgroup" "0::/$leaf" "$(inside alice 'setsid --fork --wait sh -c "grep ^0:: /proc/self/cgroup"')"
capture inside alice 'echo 0 >"/proc/$1/root/sys/fs/cgroup/$2"' "$pid" "$leaf/cgroup.procs"
[[ $err == *"cgroup.procs: Permission denied" ]]
for path in /run/kiv /etc/tarnwell /etc/shadow /root /home/bob; do
    test -e "$path"
    same "$path" ENOENT "$(inside alice '~/system_call_root native access @$1 0' "$path")"
done
EOF
}

@test "a command can write to its own terminal, but not to another account's or the host's" {
    on_two_accounts <<'EOF'
by_terminal
chmod 777 /home/bob
kiv-run -t bob sh -c 'tty >~/terminal; exec sleep 600' </dev/null >/dev/null &
eventually test -s /home/bob/terminal
same "bob's name of his" /dev/pts/0 "$(cat /home/bob/terminal)"
same "what alice can write" "/dev/full
/dev/null
/dev/ptmx
/dev/pts/0
/dev/random
/dev/tty
/dev/urandom
/dev/zero" "$(inside alice '~/writable /dev' | without_strays | sort)"
same "whose it is" "alice /home/alice" "$(inside alice 'stat -c %U /dev/pts/0; readlink /proc/$$/cwd' | xargs)"
# by number, through every visible process
same "terminals of processes" "/dev/pts/0" "$(inside alice 'readlink /proc/[0-9]*/fd/[1-9]* 2>/dev/null | grep /dev/pts | sort -u')"
EOF
}

@test "the keys of the administrator's session stay outside of a command on a terminal" {
    on_two_accounts <<'EOF'
printf '%s\n' seccomp "    allow keyctl add_key request_key" >>"$configuration"
by_terminal
administrators_key_is_out_of_reach
EOF
}
