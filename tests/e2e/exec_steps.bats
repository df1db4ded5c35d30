#!/usr/bin/env bats
# The system calls of exec between the caller's command and the shell.
load helpers

# steps: prints the calls in /tmp/trace that change the process, by short names and in order.
steps() {
    sed -nE '
        s/^[0-9]+ +//
        s/^fcntl\([0-9]+, F_OFD_SETLK, \{l_type=(F_[A-Z]+),.*/\1/p
        s/^prctl\(PR_SET_DUMPABLE, ([A-Z_]+)\) .*/\1/p
        s/^openat\([0-9]+, "cgroup.procs".*/cgroup/p
        s/^setns\([0-9]+, CLONE_([A-Z]+)\) .*/\1/p
        s/^keyctl\(KEYCTL_JOIN_SESSION_KEYRING, NULL\) .*/session keyring/p
        s/^seccomp\(SECCOMP_SET_MODE_FILTER, 0, .*= 0$/filter/p
        s/^(capset|close_range|setgroups|setresgid)\(.*/\1/p
        s/^setresuid\(([0-9]+), .*/become \1/p
        s/^chdir\("(.*)"\) .*/go to \1/p
        s/^execve\("([^"]*)".*/run \1/p
    ' /tmp/trace
}
export -f steps

@test "the steps are in an order in which each still has the rights that it needs" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
uid=$(id -u alice)
usermod --shell /bin/true alice
strace -o /tmp/trace kivctl exec alice >/dev/null
same steps "run $(command -v kivctl)
F_RDLCK
SUID_DUMP_DISABLE
cgroup
NEWNET
NEWIPC
NEWNS
go to /
session keyring
filter
capset
close_range
setgroups
setresgid
become $uid
become 0
SUID_DUMP_DISABLE
go to /
go to /home/alice
run /bin/true" "$(steps)"
EOF
}

@test "once it has joined, exec opens no file of the container until the shell runs" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
usermod --shell /none alice 2>/dev/null
mkdir /tmp/locales
localedef -i tr_TR -f ISO-8859-9 /tmp/locales/tr_TR # for error texts from its catalogues
export LOCPATH=/tmp/locales LANG=tr_TR
for fault in chdir:error=EIO:when=3 setresuid:error=EPERM capset:error=EPERM seccomp:error=EPERM; do
    injected "$fault" kivctl exec alice </dev/null
    [ "$status" != 0 ]
    grep -q 'open.*libc\.mo' /tmp/trace
    sed -n '/setns.*CLONE_NEWNS/,$p' /tmp/trace >/tmp/inside
    grep -q exit_group /tmp/inside
    refused grep -E '^[0-9]+ +(open|openat|openat2|stat|newfstatat|access|readlink)\(' /tmp/inside
done
EOF
}

@test "a filter that cannot be installed, or rights that cannot be dropped, run no shell" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
fails_with() {
    injected "$1:error=${3:-EPERM}" kivctl exec alice <<<'echo a shell'
    same "status without $1" 71 "$status"
    same "stdout without $1" "Switching into container 'alice'..." "$out"
    [[ $err =~ ^$2$ ]] || same "stderr without $1" "$2" "$err"
}
fails_with seccomp "kivctl: system-call filter: seccomp\(\): Operation not permitted"
fails_with capset "kivctl: cannot reduce the capabilities: Operation not permitted"
fails_with prctl "kivctl: cannot read the capability bounding set: Operation not permitted"
fails_with prctl "kivctl: cannot read the capability bounding set: Invalid argument" EINVAL
fails_with close_range "kivctl: close_range\(\) failed: Invalid argument" EINVAL
EOF
}
