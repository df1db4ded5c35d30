#!/usr/bin/env bats
# The PAM module in a small program that opens a session: which users it affects, what it refuses,
# and how it changes the program. The other pam_*.bats files test login programs.
load helpers

setup() {
    export project
}

@test "an account's session is inside: namespaces, cgroup, filter and no capabilities" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service login
"$programs/open_session" -a login alice sleep 600 &
child=$!
sleeps() { [ "$(cat "/proc/$child/comm")" = sleep ]; }
eventually sleeps
all_inside alice
same "processes of the container" "$child" "$(cat "/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv/cgroup.procs")"
kill "$child"
EOF
}

@test "the module works without options after all lines that Debian has for a service" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
for service in cron login sshd su su-l sudo sudo-i vsftpd; do
    printf '%s required %s\n' account "$module" session "$module" >>"/etc/pam.d/$service"
    same "$service" "$(pinned_for alice) 0000000000002000 2" "$("$programs/open_session" -a "$service" alice bash -c 'echo $(
        readlink /proc/self/ns/{net,ipc,mnt}; sed -nE "s/^(CapBnd|Seccomp):\t//p" /proc/self/status)' | tail -n 1)"
done
EOF
}

@test "root and users without a container are not affected" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --create-home carol
pam_service login
for name in root carol; do
    same "what $name sees" "$(where $$)" "$("$programs/open_session" -a login "$name" bash -c \
        'readlink /proc/self/ns/{net,ipc,mnt} | xargs')"
done
useradd --non-unique --uid 0 --no-create-home toor
printf '%s\n' 'root net=100.64.0.12/30' 'toor net=100.64.0.16/30' >>"$registry"
for name in root toor; do
    same "what $name sees, whatever the registry says" "$(where $$)" "$("$programs/open_session" -a login "$name" bash -c \
        'readlink /proc/self/ns/{net,ipc,mnt} | xargs')"
done
same "carol's bounding set" "$(grep CapBnd /proc/self/status)" \
    "$("$programs/open_session" login carol grep CapBnd /proc/self/status)"
EOF
}

@test "a second name of an account enters the account's container" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --non-unique --uid "$(id -u alice)" --gid alice --home-dir /home/alice alice-ftp
pam_service login
sed -i /pam_limits/d /etc/pam.d/login # it looks the user up, and inside only the account's own name exists
same namespaces "$(pinned_for alice)" "$("$programs/open_session" -a login alice-ftp bash -c \
    'readlink /proc/self/ns/{net,ipc,mnt} | xargs')"
EOF
}

@test "an account without its container is refused with a line for the user and one in the log, and root is not" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service login
serve_log
kivctl stop alice >/dev/null
text="error: Your account's container is not running. Ask the administrator of this host."
capture "$programs/open_session" -a login alice id
same account "3 $text
account: Permission denied" "$status $out$err"
logged '^<84>.* pam_kiv\[[0-9]+\]: refused \(container is not running, start it with: kivctl start alice\): loginuid=.* terminal=none account=alice service=login$'
capture "$programs/open_session" login alice id
same session "3 $text
session: Cannot make/remove an entry for the specified session" "$status $out$err"
same root root "$("$programs/open_session" -a login root id -un)"
EOF
}

@test "an entry is logged with the program, the terminal and the host that it came from" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service login
serve_log
"$programs/open_session" login alice true
logged '^<86>.* pam_kiv\[[0-9]+\]: entered: loginuid=.* terminal=none account=alice service=login$'
"$programs/open_session" login root true
same lines 1 "$(grep -c pam_kiv /tmp/log)"
EOF
}

@test "stopped=start starts the container first, and reports why when it cannot" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
kivctl_installed
pam_service login stopped=start
serve_log
kivctl stop -a >/dev/null
same "who is in" alice "$("$programs/open_session" -a login alice id -un)"
same pinned "net ipc mnt" "$(mounted alice | xargs)"
kivctl stop alice >/dev/null
same "by the session only" alice "$("$programs/open_session" login alice id -un)"
echo 'bob net=100.64.0.8/30x' >"$registry"
capture "$programs/open_session" -a login bob id
same status 3 "$status"
logged 'refused \(cannot start the container: .*100\.64\.0\.8/30x.*account=bob'
EOF
}

@test "a registry or configuration that cannot be read locks out everyone except root" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --create-home carol
pam_service login
text="error: Logins are closed: this host's containers are not set up. Ask its administrator."
broken() {
    local name
    for name in alice carol; do
        capture "$programs/open_session" login "$name" id
        same "$1, $name" "3 $text
session: Cannot make/remove an entry for the specified session" "$status $out$err"
        capture "$programs/open_session" -a login "$name" id
        same "$1, account $name" "3 $text
account: Permission denied" "$status $out$err"
    done
    same "$1, root" root "$("$programs/open_session" -a login root id -un)"
}
mv "$registry" "$registry.kept"
broken "no registry"
mkdir "$registry"
broken "a directory"
rmdir "$registry"
printf 'alice\0 net=100.64.0.4/30\n' >"$registry"
broken "a NUL byte"
printf 'bob net=100.64.0.8/30\0alice net=100.64.0.4/30\n' >"$registry"
broken "a NUL byte for the end of a line"
printf '#\0alice net=100.64.0.4/30\nbob net=100.64.0.8/30\n' >"$registry"
broken "a NUL byte in a comment"
mv "$registry.kept" "$registry"
mv "$configuration" "$configuration.kept"
broken "no configuration"
echo "    an item" >"$configuration"
broken "a configuration that is not understood"
mv "$configuration.kept" "$configuration"
same repaired alice "$("$programs/open_session" -a login alice id -un)"
EOF
}

@test "an item that the library does not understand locks out accounts, and nobody else" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --create-home carol
pam_service login
printf 'cap_add\n    CAP_MAGIC\n' >>"$configuration"
capture "$programs/open_session" -a login alice id
same alice "3 error: Your account's container cannot be entered. Ask the administrator of this host.
account: Permission denied" "$status $out$err"
same carol carol "$("$programs/open_session" -a login carol id -un)"
EOF
}

@test "without the container library accounts are refused, and root and other users are not" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --create-home carol
unset LD_LIBRARY_PATH
install -D -t /opt/module/security "$module"
module=/opt/module/security/pam_kiv.so
pam_service login
serve_log
capture "$programs/open_session" -a login alice id
same alice "3 error: Your account's container cannot be entered. Ask the administrator of this host.
account: Permission denied" "$status $out$err"
logged 'refused \(libkiv\.so\.1: cannot open shared object file'
same "root and carol" "root carol" "$(for name in root carol; do "$programs/open_session" -a login "$name" id -un; done | xargs)"
EOF
}

@test "with unknown options everyone except root is refused" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
serve_log
for option in registry= registry registry=kiv.users stopped= stopped=maybe start; do
    pam_service login "$option"
    capture "$programs/open_session" -a login alice id
    same "answer to $option" 3 "$status"
    same "root" root "$("$programs/open_session" -a login root id -un)"
done
logged 'refused \(option registry= needs the path of a file\)'
logged "refused \(unknown option 'start'\)"
pam_service login registry=/etc/other
printf 'bob\n' >/etc/other
same "bob is in the other registry, alice is not" "$(pinned_for bob) $(where $$)" "$(for name in bob alice; do
    "$programs/open_session" -a login "$name" bash -c 'readlink /proc/self/ns/{net,ipc,mnt}'; done | xargs)"
EOF
}

@test "names of no user are refused with a line, and enter nothing" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service login
serve_log
for name in nobody-here a/b alice@x '' .. alice/; do
    capture "$programs/open_session" login "$name" id
    same "answer to '$name'" "3 session: Cannot make/remove an entry for the specified session" \
        "$status $(grep -v ^error: <<<"$out$err")"
    grep -q ^error: <<<"$out"
done
logged 'refused \(a/b: unknown user\)'
logged 'refused \(alice@x: unknown user\)'
useradd --badname alice@y 2>/dev/null || useradd --badnames alice@y
echo alice@y >>"$registry"
capture "$programs/open_session" login alice@y id
same "answer to a user of that name" 3 "$status"
logged "refused \(alice@y: invalid character '@' in user name\)"
EOF
}

@test "a session changes nothing in the program that opens it except where it runs" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
kivctl_installed
useradd --create-home carol
pam_service login stopped=start
sed -i -E "/permit|kiv/!d" /etc/pam.d/login
kivctl stop bob >/dev/null
for name in root carol alice bob; do
    same "changes by $name's" $'compared\nin' "$("$programs/open_session" -a -s login "$name" echo in)"
done
rm "$registry"
same "changes by a refusal" "error: Logins are closed: this host's containers are not set up. Ask its administrator.
session: Cannot make/remove an entry for the specified session
compared" "$("$programs/open_session" -s login alice || true)"
EOF
}

@test "the module prints nothing to the program's streams" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service login
echo 'carol mtu=1500' >>"$registry"
same output "in" "$("$programs/open_session" -a login alice echo in 2>&1)"
EOF
}

@test "a program that ignores the refusal cannot become the user" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service login
kivctl stop alice >/dev/null
capture "$programs/open_session" -i login alice id
same status 4 "$status"
same "the last line" "cannot become the user: Operation not permitted" "$(tail -n 1 <<<"$out")"
capture "$programs/open_session" -i -r login alice setpriv --reuid alice id
same "what a program that it starts as root says" "setpriv: setresuid failed: Operation not permitted" "$err"
EOF
}

@test "accounts get no user manager of systemd" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --create-home carol
pam_service systemd-user
serve_log
fails 3 "$programs/open_session" -a systemd-user alice id >/dev/null
fails 3 "$programs/open_session" systemd-user alice id >/dev/null
logged 'refused \(a user manager of the account would be outside\)'
same carol carol "$("$programs/open_session" -a systemd-user carol id -un)"
EOF
}

@test "the module waits for a container that is being built, and gives up after five seconds" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service login
with_lock alice exclusive bash -c 'touch /tmp/held; sleep 1; echo free >>/tmp/order' &
eventually test -e /tmp/held
"$programs/open_session" login alice echo entered >>/tmp/order
same order $'free\nentered' "$(cat /tmp/order)"
wait
rm /tmp/held
with_lock alice exclusive bash -c 'touch /tmp/held; until test -e /tmp/free; do sleep 0.01; done' &
eventually test -e /tmp/held
capture timeout 20 "$programs/open_session" -a login alice id
same "status and output" "3 error: Your account's container cannot be entered. Ask the administrator of this host.
account: Permission denied" "$status $out$err"
touch /tmp/free
EOF
}
