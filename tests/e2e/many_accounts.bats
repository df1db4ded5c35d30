#!/usr/bin/env bats
# Commands over all accounts find the same users as look-ups by name, and take no longer.
load helpers
load cgroups

# slices UID…: creates a cgroup for each that reports as many processes as its user ID.
slices() {
    local uid
    for uid in "$@"; do
        mkdir -p "/sys/fs/cgroup/user.slice/user-$uid.slice"
        echo "$uid" >"/sys/fs/cgroup/user.slice/user-$uid.slice/pids.current"
    done
}

# sources SERVICE…: sets where users are looked up. "early" refuses to be enumerated and knows alice
# and dora.
sources() {
    sed -i "s/^passwd:.*/passwd: $*/" /etc/nsswitch.conf
    grep -q "^passwd: $*$" /etc/nsswitch.conf
    export LD_LIBRARY_PATH
    LD_LIBRARY_PATH=$(dirname "$KIVCTL")/../tests/e2e/programs
}

# shown: prints the accounts of the table with the figure that shows whose slice was read.
shown() {
    kivctl status -a | awk '/yes/ { printf "%s=%s ", $2, $6 }'
}
export -f slices sources shown

@test "a source before the password file is used, although it cannot be enumerated" {
    in_host <<'EOF'
stand_in_cgroups
account bob
account alice  # not the first: the first is looked up by the C library
mkdir /run/kiv
touch /run/kiv/{alice,bob}@mnt
alice=$(id -u alice) bob=$(id -u bob)
slices "$alice" "$bob" 31000 31001
same "user ids of the file" "bob=$bob alice=$alice " "$(shown)"
sources early files
same "user ids of the first source" "bob=$bob alice=31000 " "$(shown)"
sources files early
same "user ids of the file again" "bob=$bob alice=$alice " "$(shown)"
EOF
}

@test "users that the password file lacks are those of the next source" {
    in_host <<'EOF'
stand_in_cgroups
account alice
sed -i 1i\\dora /etc/tarnwell/kiv.users
mkdir /run/kiv
touch /run/kiv/{alice,dora}@mnt
alice=$(id -u alice)
slices "$alice" 31001
sources files early
same "user ids" "dora=31001 alice=$alice " "$(shown)"
EOF
}

@test "the first of several lines of a user counts" {
    in_host <<'EOF'
stand_in_cgroups
account bob
account alice  # not the first, which is looked up by the C library
alice=$(id -u alice)
echo alice:x:31000:31000::/home/alice:/bin/bash >>/etc/passwd
mkdir /run/kiv
touch /run/kiv/alice@mnt
slices "$alice" 31000
same "user id" "alice=$alice " "$(shown)"
EOF
}

@test "all commands refuse the same names as a look-up by name, in the order of the registry" {
    in_host <<'EOF'
account alice
printf '%s\n' nobody-here alice a@b root >/etc/tarnwell/kiv.users
for command in start stop status; do
    capture kivctl "$command" -a
    same "status of $command" 71 "$status"
    # without a network start and stop refuse alice, too, but after looking her up
    same "lines of $command" "kivctl: nobody-here: nobody-here: unknown user
a@b: a@b: invalid character '@' in user name
root: root: cannot create container for uid 0" "$(grep -v '^alice' <<<"$err")"
done
EOF
}

@test "the password file is read at most twice for any number of accounts" {
    in_host <<'EOF'
account alice
for ((i = 0; i < 500; i++)); do
    echo "user$i:x:$((30000 + i)):30000::/home/user$i:/bin/bash" >>/etc/passwd
    echo "user$i" >>/etc/tarnwell/kiv.users
done
for command in status stop; do
    strace -o /tmp/trace -e trace=openat kivctl "$command" -a >/dev/null 2>&1 || true
    # the C library looks up the first account, the others share one reading
    same "times that $command opens it" 2 "$(grep -c '"/etc/passwd"' /tmp/trace)"
done
strace -o /tmp/trace -e trace=openat kivctl status alice >/dev/null
same "times that status of one account opens it" 1 "$(grep -c '"/etc/passwd"' /tmp/trace)"
EOF
}

@test "a user ID that changes while accounts are started counts for the accounts that follow" {
    in_host <<'EOF'
account alice 100.64.0.0/30
account bob 100.64.0.4/30
account carol 100.64.0.8/30
group=$(id -g carol)
# when bob is started, the password file has been read for carol too
record ip '[ "$1 $2 $3" != "link add veth-bob" ] || usermod --uid 31000 carol; exec $real "$@"'
kivctl start -a
# start finds no group for a user ID that no user has any more
same "ping range" "$group $group" "$(enter_as_root carol cat /proc/sys/net/ipv4/ping_group_range | xargs)"
EOF
}

@test "status of many accounts opens the directory of their slices once" {
    in_host <<'EOF'
stand_in_cgroups
account alice
account bob
account carol
mkdir /run/kiv
touch /run/kiv/{alice,bob,carol}@mnt
slices "$(id -u alice)" "$(id -u bob)" "$(id -u carol)"
strace -e trace=%file -o /tmp/trace kivctl status -a >/dev/null
same "looks below the hierarchy's path" 1 "$(grep -c '"/sys/fs/cgroup' /tmp/trace)"
EOF
}
