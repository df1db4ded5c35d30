# Functions of the tests that attack from inside a container; sourced on the simulated host after
# on_host.bash.

programs=$(dirname "$KIVCTL")/../tests/e2e/programs

# two_accounts: starts containers for alice, who attacks from her home, where the programs are, and
# for bob, on a host with the sample configuration. Each test sets the sections on capabilities and
# system calls itself.
two_accounts() {
    sed '/^cap_add/,$d' "$project/dist/kiv.conf" >"$configuration"
    account alice 100.64.0.4/30
    account bob 100.64.0.8/30
    find "$programs" -maxdepth 1 -type f -perm /111 -exec cp -t /home/alice {} +
    kivctl start -a >/dev/null 2>&1
}

# What watch_process prints of a process that it cannot get at.
# shellcheck disable=SC2034 # for the tests
nothing_reached="mem ENOENT
environ ENOENT
maps ENOENT
fd/0 ENOENT
root ENOENT
cwd ENOENT
exe ENOENT
ns/mnt ENOENT
process_vm_readv EPERM
process_vm_writev EPERM
pidfd_open 0
pidfd_getfd EPERM
PTRACE_SEIZE EPERM
PTRACE_ATTACH EPERM"

# inside NAME COMMAND [ARGUMENT…]: a shell command in the account's shell, as exec gives it, with this
# standard input. The arguments are its $1 and so on.
inside() {
    kivctl exec "$1" < <(
        printf 'exec bash -c'
        printf ' %q' "$2" bash "${@:3}"
        printf '\n'
        cat
    )
}

# by_terminal: from now on `inside` gets in by kiv-run, on a terminal of the container's. Standard input comes from a
# file: typed, it would show.
by_terminal() {
    inside() {
        cat >"/home/$1/input"
        kiv-run -t "$1" bash -c "{ $2
} <~/input" bash "${@:3}" </dev/null | tr -d '\r'
    }
}

# answered ANSWER LIST: the expected output when each call of the list gets this answer.
answered() { sed "s/\$/ $1/" <<<"$2"; }

# hold POINT COMMAND…: starts a command that enters in the background and stops it there (see hold_exec.c); leaves
# its process id in `entering`, to be waited for, and that of the process that enters in `held`, to be continued: with a
# terminal of its own kiv-run has two.
# shellcheck disable=SC2034 # for the tests
hold() {
    cp "$programs/hold_exec.so" /tmp # LD_PRELOAD separates its items by blanks, and a path may have one
    HOLD_AT=$1 LD_PRELOAD=/tmp/hold_exec.so "${@:2}" </dev/null >/tmp/held 2>&1 &
    entering=$!
    until held=$(pgrep --runstates T --parent "$entering,$$"); do sleep 0.01; done
}

# outside NAME COMMAND…: starts a command as the account on the host itself; its process ID is in
# `pid`.
outside() {
    setpriv --reuid "$1" --regid "$1" --init-groups "${@:2}" </dev/null >/dev/null 2>&1 &
    pid=$!
    until [ "$(stat -c %U "/proc/$pid")" = "$1" ] && ! grep -q setpriv "/proc/$pid/cmdline"; do sleep 0.01; done
}

# as_uid_0 [PROGRAM]: gives alice a set-user-id root copy of a program, by default of system_call.
as_uid_0() {
    chmod 711 /home/alice # for permissions, root without capabilities is an ordinary user
    install -m 4755 "$programs/${1:-system_call}" "/home/alice/${1:-system_call}_root"
}

# may_be_locked_down LIST: the answers without those that a kernel in lockdown refuses even to root.
may_be_locked_down() { grep -v '^kexec_' <<<"$1"; }

# without_strays: leaves out device nodes outside /dev that this machine has.
without_strays() {
    local line
    while read -r line; do
        case $line in
            /dev/*) echo "$line" ;;
            *) [ -c "${line%%:*}" ] || [ -b "${line%%:*}" ] || echo "$line" ;;
        esac
    done
}

# join_all is perl for the account: tries to join every namespace and process that it finds, and prints the
# kinds of answers with how often each was given
# shellcheck disable=SC2016,SC2034 # for perl; for the tests
join_all='require "syscall.ph";
my %answers;
sub answer { my ($what, $failed) = @_; $answers{"$what " . ($failed ? (grep { $!{$_} } qw(EPERM EINVAL ESRCH))[0] : 0)}++ }
for my $path (glob "/proc/[0-9]*/ns/*") {
    open(my $namespace, "<", $path) or next;
    answer("namespace", syscall(SYS_setns(), fileno($namespace), 0) != 0);
}
for my $pid (map { /(\d+)/ } glob("/proc/[0-9]*"), @ARGV) {
    my $process = syscall(SYS_pidfd_open(), $pid + 0, 0);
    next if $process < 0;
    for my $kinds (0x20000, 0x08000000, 0x40000000, 0x48020000) {
        answer("process", syscall(SYS_setns(), $process, $kinds) != 0);
    }
}
print map { "$_ $answers{$_}\n" } sort keys %answers;'

# administrators_key_is_out_of_reach: alice's commands do not find the key in the session of the
# administrator who runs them, although her filter allows the calls.
administrators_key_is_out_of_reach() {
    # searches the caller's session keyring, -3, and uses the key's number
    calls() {
        echo "keyctl 10 -3 @user @administrator's 0"
        echo "keyctl 11 $(cat /tmp/key) @$(printf '%032d' 0) 32"
        echo "request_key @user @administrator's 0 0"
    }
    answers() { calls | "$@" | grep -o '[^ ]*$' | xargs; }
    in_container() { inside alice '~/system_call native'; }
    export -f calls answers in_container inside
    in_session() { "$programs/with_key" /tmp/key bash -c 'answers "$@"' bash "$@"; }
    same "whoever has the session can read it" "0 0 0" "$(in_session setpriv --reuid alice --regid alice --init-groups \
        "$programs/system_call" native)"
    same "answers to the account" "ENOKEY EACCES ENOKEY" "$(in_session in_container)"
}
