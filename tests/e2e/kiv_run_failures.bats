#!/usr/bin/env bats
# Failures of kiv-run, and containers that it starts or waits for.
load helpers
load with_alice

@test "every failure of kiv-run itself gives status 125 and one clear line, and enters nothing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
useradd --non-unique --uid 0 --no-create-home toor
kivctl start alice >/dev/null
refuses() {
    capture timeout 20 kiv-run "${@:2}"
    same "answer to ${*:2}" "125  kiv-run: $1" "$status $out $err"
}
refuses "missing user name"
refuses "missing user name" --
refuses "unknown option '-Q'" -Q alice true
refuses "unknown option '--nonsense'" --nonsense alice true
refuses "unknown option '--start=x'" --start=x alice true
refuses "option '-C' requires an argument." -C
refuses "option '-e' requires an argument." -e
refuses "option '-u' requires an argument." -u
refuses "option '--preserve-fds' requires an argument." --preserve-fds
for mask in 8 1000 -1 +2 '' 0x1 '7 '; do
    refuses "'$mask' is not an octal number up to 777" -u "$mask" alice true
done
for count in -1 x '' 1.5 99999999999; do
    refuses "'$count' is not a number of descriptors" --preserve-fds "$count" alice true
done
refuses "carol: unknown user" carol true
refuses ": unknown user" '' true
refuses "a/b: unknown user" a/b true
refuses "alice@x: invalid character '@' in user name" alice@x true
refuses "root: cannot create container for uid 0" root true
refuses "toor: cannot create container for uid 0" toor true
refuses "al\\x1b: unknown user" $'al\e' true
capture setpriv --reuid alice --regid alice --clear-groups "$(command -v kiv-run)" alice true
same "another caller" "125  kiv-run: only root may run this program" "$status $out $err"
refused test -e "/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv"
EOF
}

@test "a container that is not running or was interrupted is reported in the library's words" {
    in_host <<'EOF'
account alice 100.64.0.4/30
capture kiv-run alice echo a command
same "not running" "125  kiv-run: /run/kiv/alice@net: container is not running, start it with: kivctl start alice" \
    "$status $out $err"
kivctl start alice >/dev/null
python3 -c 'import os; os.setxattr("/run/kiv", "trusted.kiv.unfinished.alice", b"mnt pinned")'
capture kiv-run alice echo a command
same interrupted "125  kiv-run: /run/kiv: starting the container of alice was interrupted, start it with: \
kivctl start alice" "$status $out $err"
EOF
}

@test "--start starts the container first, and only for accounts of the registry" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob
useradd --create-home carol
capture kiv-run --start alice id -un
same "the first time" "0 alice " "$status $out $err"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "the way out" 192.0.2.2 "$(kiv-run alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
held=$(stat -Lc %i /run/kiv/alice@{net,ipc,mnt})
capture kiv-run --start alice id -un
same "while it runs" "0 alice " "$status $out $err"
same "the namespaces" "$held" "$(stat -Lc %i /run/kiv/alice@{net,ipc,mnt})"
capture kiv-run --start carol id -un
same "not registered" "125  kiv-run: KIV not configured for requested user" "$status $out $err"
capture kiv-run --start bob id -un
same "no network" "125  kiv-run: malformed network ''" "$status $out $err"
printf 'bob\0 net=100.64.0.8/30\n' >"$registry"
capture kiv-run --start bob id -un
same "a NUL in the registry" "125  kiv-run: KIV not configured for requested user" "$status $out $err"
printf ' item\n' >"$configuration"
capture kiv-run --start alice id -un
same "a faulty configuration" "125  kiv-run: /etc/tarnwell/kiv.conf: line 1: not parsing a list" "$status $out $err"
EOF
}

@test "a start of --start that fails half-way enters nothing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected pivot_root:error=EINVAL kiv-run --start alice echo a command
same "status and output" "125 " "$status $out"
[[ $err == *"kiv-run: /run/kiv: starting the container of alice was interrupted, "* ]]
EOF
}

@test "kiv-run waits for a container that is being built, and gives up after five seconds" {
    with_alice <<'EOF'
with_lock alice exclusive bash -c 'touch /tmp/held; sleep 1; echo free >>/tmp/order' &
eventually test -e /tmp/held
kiv-run alice echo entered >>/tmp/order
same order $'free\nentered' "$(cat /tmp/order)"
wait
rm /tmp/held
with_lock alice exclusive bash -c 'touch /tmp/held; until test -e /tmp/free; do sleep 0.01; done' &
eventually test -e /tmp/held
capture timeout 20 kiv-run alice echo a command
same "status and output" "125 " "$status $out"
same stderr "alice: waiting for a start or stop of this account
kiv-run: alice: containers are being started or stopped, try again later" "$err"
touch /tmp/free
EOF
}

@test "a step that fails runs no command" {
    with_alice <<'EOF'
for fault in setns:error=EPERM keyctl:error=EDQUOT seccomp:error=ENOSYS capset:error=EPERM setgroups:error=EPERM \
    setresgid:error=EPERM setresuid:error=EPERM setresuid:retval=0 close_range:error=EINVAL fcntl:error=ENOLCK; do
    for way in -T -t; do
        injected "$fault" kiv-run "$way" alice echo a command
        same "answer to $fault with $way" "125 " "$status $out"
        [[ $err == "kiv-run: "* ]]
    done
done
EOF
}
