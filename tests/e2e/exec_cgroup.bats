#!/usr/bin/env bats
# The cgroup into which exec moves an account's shell.
load helpers

# cgroup_of USER: prints the shell's place in the cgroup v2 hierarchy.
cgroup_of() {
    kivctl exec "$1" <<<'grep ^0: /proc/$$/cgroup'
}

# no_entry MESSAGE: alice's exec fails with the message and runs nothing.
no_entry() {
    capture kivctl exec alice <<<'echo a shell'
    same "exit status" 71 "$status"
    same stdout "Switching into container 'alice'..." "$out"
    same stderr "kivctl: $1" "$err"
}
export -f cgroup_of no_entry

@test "the shell is in a leaf of the account's slice, which is created when it is missing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
refused test -e /sys/fs/cgroup/user.slice
slice=/user.slice/user-$(id -u alice).slice
same "first time" "0::$slice/kiv" "$(cgroup_of alice)"
same "made" "755 0:0" "$(stat -c '%a %u:%g' "/sys/fs/cgroup$slice/kiv")"
same "second time" "0::$slice/kiv" "$(cgroup_of alice)"
rmdir "/sys/fs/cgroup$slice/kiv"
same "slice alone is left" "0::$slice/kiv" "$(cgroup_of alice)"
same "those in the slice itself" "" "$(cat "/sys/fs/cgroup$slice/cgroup.procs")"
EOF
}

@test "the leaf's mode does not depend on the caller's umask" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
umask 0077
cgroup_of alice >/dev/null
find /sys/fs/cgroup/user.slice -type d -exec stat -c %a {} + >/tmp/modes
same modes 755 "$(sort -u /tmp/modes)"
EOF
}

@test "shells of one account share the leaf, those of two accounts have their own" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a >/dev/null 2>&1
leaf=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv
mkfifo /tmp/{one,two}
kivctl exec alice </tmp/one & one=$!
kivctl exec alice </tmp/two & two=$!
exec {keepOne}>/tmp/one {keepTwo}>/tmp/two
both_are_in() { [ "$(wc -l <"$leaf/cgroup.procs")" = 2 ]; }
eventually both_are_in
same "alice's processes" "$(printf '%s\n' "$one" "$two" | sort)" "$(sort "$leaf/cgroup.procs")"
same "bob's" "0::/user.slice/user-$(id -u bob).slice/kiv" "$(cgroup_of bob)"
exec {keepOne}>&- {keepTwo}>&-
wait "$one" "$two"
same "left behind" "" "$(cat "$leaf/cgroup.procs")"
EOF
}

@test "a slice with sessions of the account keeps them and its controllers" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
slice=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice
mkdir -p "$slice/session-1.scope"
for directory in "${slice%/*}" "$slice"; do
    read -ra controllers <"$directory/cgroup.controllers" || true # none on some kernels
    for controller in "${controllers[@]}"; do
        echo "+$controller" >"$directory/cgroup.subtree_control"
    done
done
enabled=$(cat "$slice/cgroup.subtree_control")
sleep 60 & session=$!
echo "$session" >"$slice/session-1.scope/cgroup.procs"
same leaf "0::/user.slice/user-$(id -u alice).slice/kiv" "$(cgroup_of alice)"
same session "$session" "$(cat "$slice/session-1.scope/cgroup.procs")"
same controllers "$enabled" "$(cat "$slice/cgroup.subtree_control")"
kill "$session"
EOF
}

@test "processes and memory are counted in the leaf where the kernel can count them" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
cgroup_of alice >/dev/null
leaf=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv
for controller in memory pids; do
    if grep -qw "$controller" /sys/fs/cgroup/cgroup.controllers; then
        test -e "$leaf/$controller.current"
    else
        refused test -e "$leaf/$controller.current"
    fi
done
EOF
}

@test "a leaf that is created on a host without systemd has a limit of processes, which nothing overwrites" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
leaf=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv
attempts() { grep -c 'openat(.*"pids.max", O_WRONLY' /tmp/trace || true; }
enters() { strace -f -o /tmp/trace -e trace=openat kivctl exec alice <<<true >/dev/null; }
enters
same "attempts for a new leaf" 1 "$(attempts)"
if grep -qw pids /sys/fs/cgroup/cgroup.controllers; then
    same "limit" 512 "$(cat "$leaf/pids.max")"
    echo 100 >"$leaf/pids.max"
fi
enters
same "attempts for one that is there" 0 "$(attempts)"
if [ -e "$leaf/pids.max" ]; then
    same "the administrator's" 100 "$(cat "$leaf/pids.max")"
fi
rmdir "$leaf"
mkdir -p /run/systemd/system
enters
same "attempts beside systemd" 0 "$(attempts)"
EOF
}

@test "without cgroup v2 nobody can enter, and the error names the path" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
umount /sys/fs/cgroup
no_entry "/sys/fs/cgroup: no cgroup v2 file system is mounted here"
mount -t tmpfs none /sys/fs/cgroup
no_entry "/sys/fs/cgroup: no cgroup v2 file system is mounted here"
same "made there" "" "$(ls /sys/fs/cgroup)"
mount -t tmpfs none /sys
no_entry "/sys/fs/cgroup: No such file or directory"
EOF
}

@test "a cgroup that cannot be created or joined is named with the reason" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
slice=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice
mount -o remount,bind,ro /sys/fs/cgroup
no_entry "/sys/fs/cgroup/user.slice: Read-only file system"
mount -o remount,bind,rw /sys/fs/cgroup
mkdir -p "$slice"
echo 0 >"$slice/cgroup.max.descendants"
no_entry "$slice/kiv: Resource temporarily unavailable"
echo max >"$slice/cgroup.max.descendants"
echo threaded >"$slice/cgroup.type"
no_entry "$slice/kiv/cgroup.procs: Operation not supported"
EOF
}

@test "a process that is not in the cgroup joins no namespace" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
umount /sys/fs/cgroup
injected setns:error=EIO kivctl exec alice <<<true
same status 71 "$status"
refused grep setns /tmp/trace
EOF
}
