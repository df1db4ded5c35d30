#!/usr/bin/env bats
# Removal of users by the real userdel and deluser, with and without the hook that stops the
# container first.
load helpers

# hook: installs the hook like the package. deluser searches programs only in the system's folders.
hook() {
    local moment
    for moment in pre post; do
        install -D "$project/dist/shadow/userdel-hook" "/etc/shadow-maint/userdel-$moment.d/kivctl"
    done
    ln -s "$(command -v kivctl)" /usr/sbin/kivctl
}

# two: starts containers for alice and bob, with a process in each.
two() {
    account alice 100.64.0.4/30
    account bob 100.64.0.8/30
    kivctl start -a >/dev/null 2>&1
    resident alice "${1:-exec sleep 1000}"
    resident bob 'exec sleep 1000'
}

# resident NAME COMMAND: starts a process in the account's container and waits until it has run
# `touch ~/there`.
resident() {
    enter "$1" bash -c "touch ~$1/there; $2" </dev/null >/dev/null 2>&1 3>&- &
    eventually test -e "/home/$1/there"
}

# gone NAME: user, container, rules, cgroup and line of the registry must be removed.
gone() {
    refused getent passwd "$1"
    same "files of $1" "" "$(compgen -G "/run/kiv/$1@*" || true)"
    same "rules of $1" "" "$(iptables-save | grep "veth-$1" || true)"
    same "lines of $1" "" "$(grep "$1" "$registry" || true)"
    refused test -e "/sys/fs/cgroup/user.slice/user-$2.slice/kiv"
}

# untouched NAME: user, container and line must be unchanged.
untouched() {
    getent passwd "$1" >/dev/null
    same "mounted of $1" "net ipc mnt" "$(mounted "$1" | xargs)"
    grep -q "^$1 " "$registry"
}
export project
export -f hook two resident gone untouched

@test "removing a user stops the container first and removes the registry's line" {
    in_host <<'EOF'
hook
two
chmod 640 "$registry"
printf '# alice\n \talice\tnet=100.64.0.4/30\r\nalice2 net=100.64.0.12/30' >>"$registry"
id=$(id -u alice)
kivctl exec alice <<<true >/dev/null # creates the cgroup
capture userdel -r alice
same "status" 0 "$status"
same "stdout" "stopping container: alice, network:100.64.0.4/30
stopping container: alice, network:100.64.0.4/30
kivctl: removed from /etc/tarnwell/kiv.users: alice net=100.64.0.4/30
$(printf ' \talice\tnet=100.64.0.4/30\r')" "$out"
sed -i '/^# alice$/d; /^alice2 /d' "$registry"
gone alice "$id"
same "processes" "" "$(pgrep --uid "$id" || true)"
refused test -e /home/alice
same "registry" "640 bob net=100.64.0.8/30" "$(stat -c %a "$registry") $(cat "$registry")"
untouched bob
id=$(id -u bob)
deluser --remove-home bob >/dev/null
gone bob "$id"
EOF
}

@test "a user whose container does not stop is not removed" {
    in_host <<'EOF'
hook
two 'trap "" TERM; while :; do sleep 1; done'
capture userdel -r alice
same "status" 1 "$status"
[[ $err == *"kivctl: the container of 'alice' is not stopped, so the user is not removed: see above, run kivctl stop alice, and try again"* ]]
untouched alice
test -d /home/alice
sed -i '/^bob /d' "$registry" # a panel's order of steps
capture userdel bob
same "status without a line" 1 "$status"
[[ $err == *"KIV not configured for requested user"* ]]
getent passwd bob >/dev/null
echo 'bob net=100.64.0.8/30' >>"$registry"
userdel bob >/dev/null
refused getent passwd bob
pkill --signal KILL --uid alice
EOF
}

@test "users below another prefix, users without a container and users of another source are left alone" {
    in_host <<'EOF'
hook
two
mkdir -p /tmp/other/etc
for option in "--prefix /tmp/other" "--prefix=/tmp/other" "-P /tmp/other"; do
    cp /etc/{passwd,shadow,group,gshadow,login.defs} /tmp/other/etc
    # shellcheck disable=SC2086 # an option and its value
    same "of $option" "" "$(userdel $option alice)"
    refused grep ^alice /tmp/other/etc/passwd
done
untouched alice
useradd carol
same "of one without a container" "" "$(userdel carol 2>&1)"
echo 'bob net=100.64.0.8/30' >/tmp/line
record getent '[ "$2" != bob ] || exit 0; exec $real "$@"'
userdel bob >/dev/null
grep -qxf /tmp/line "$registry"
rm /usr/sbin/kivctl
PATH=/usr/sbin:/usr/bin:/sbin:/bin capture userdel -f alice
same "status without kivctl" 0 "$status"
[[ $err == *"kivctl: the container of 'alice' runs until the next boot: kivctl is not installed"* ]]
EOF
}

@test "a user who was removed first leaves a container, and kiv-check's advice ends it" {
    in_host <<'EOF'
two
ids=$(id -u alice) # noted
capture userdel -r alice
same "userdel sees no process of a container" 0 "$status"
pgrep --uid "$ids" >/dev/null
useradd --uid "$ids" --create-home eve # she now owns the files
hook
advice() { { kiv-check --host || true; } | sed -nE "s/.* there is no user 'alice' for this container: (.*)/\1/p"; }
same "advice" "run useradd --no-create-home alice, kivctl stop alice, userdel alice" "$(advice)"
eval "$(advice | sed 's/^run //; s/, /; /g')" >/dev/null
gone alice "$(id -u eve)"
same "processes with the ID" "" "$(pgrep --uid eve || true)"

rm -r /etc/shadow-maint
sed -i '/^bob/d' "$registry"
userdel bob
hook 2>/dev/null || true
advice() { { kiv-check --host || true; } | sed -nE "s/.* there is no user 'bob' for this container: (.*)/\1/p"; }
same "advice" "add its line to the registry, run useradd --no-create-home bob, kivctl stop bob, userdel bob" "$(advice)"
# as kiv-check(8) explains
echo "bob net=$(ip -brief -4 address show veth-bob | sed -E 's|.* (100.*)\.9/30.*|\1.8/30|')" >>"$registry"
eval "$(advice | sed 's/.*run //; s/, /; /g')" >/dev/null
gone bob none
EOF
}
