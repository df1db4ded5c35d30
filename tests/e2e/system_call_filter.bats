#!/usr/bin/env bats
# The answers of the system-call filter on every system-call interface that a program in a container
# can use. The kernel itself would refuse the arguments: they do no harm, and the error shows
# whether the filter or the kernel has answered.
load helpers
load with_attacks

export denied_calls="open_tree_attr 0xffffffff 1 0xffff0000 0
acct 1
add_key 1 1 1 1 0
adjtimex 1
bpf 0xffff 1 1
clock_adjtime 0 1
clock_settime 0 1
clone 0x10000200
clone 0xfeed000010000200
delete_module 1 0
fanotify_init 0xffffffff 0
finit_module 0xffffffff 0 0
fsconfig 0xffffffff 0 0 0 0
fsmount 0xffffffff 0xff00 0
fsopen 1 0xff00
fspick 0xffffffff 1 0xff00
init_module 1 0 0
io_uring_enter 0xffffffff 0 0 0 0
io_uring_register 0xffffffff 0 0 0
io_uring_setup 0 1
ioctl 0xffffffff 0x5412 1
ioctl 0xffffffff 0x541c 1
ioctl 0xffffffff 0x5423 1
ioctl 0xffffffff 0xc040ff0b 1
ioctl 0xffffffff 0xffffffffff0b 1
ioctl 0xffffffff 0xfeed00005412 1
ioctl 0xffffffff 0x8000000000005412 1
ioctl 0xffffffff 0x10000541c 1
ioctl 0xffffffff 0xffffffff0000541c 1
ioperm 0x10000 1 1
iopl 4
kcmp 0x7fffffff 0x7fffffff 0 0 0
kexec_load 0 0x7fffffff 1 1
keyctl 0xffff
lookup_dcookie 0 1 0
migrate_pages 0x7fffffff 64 1 1
mount 1 1 1 0 1
mount_setattr 0xffffffff 1 0 1 0
move_mount 0xffffffff 1 0xffffffff 1 0xffff0000
move_pages 0x7fffffff 0 0 0 0 0xff
nfsservctl 0xff 1 1
open_by_handle_at 0xffffffff 1 0
open_tree 0xffffffff 1 0xffff0000
perf_event_open 1 0 0 0xffffffff 0
pivot_root 1 1
quotactl 0xffffffff 1 0 1
quotactl_fd 0xffffffff 0xffffffff 0 1
reboot 0 0 0 0
request_key 1 1 1 0
setns 0xffffffff 0
settimeofday 1 1
swapoff 1
swapon 1 0
syslog 0xff 0 0
umount2 1 0xff0000
unshare 0x10000001
unshare 0xfeed000010000001
userfaultfd 0xffff0000"

@test "the filter answers denied calls before the kernel does" {
    on_two_accounts <<'EOF'
calls="$denied_calls
kexec_file_load 0xffffffff 0xffffffff 0 0 0xff"
if [ "$(uname -m)" = x86_64 ]; then
    calls+="
_sysctl 1
create_module 1 1
get_kernel_syms 1
query_module 1
sysfs 0xff
uselib 1
ustat 0xffffffff 1"
else
    calls=$(grep -v ^iop <<<"$calls") # has no ports
fi
same "answers to the account" "$(answered EPERM "$calls")" "$(inside alice '~/system_call native' <<<"$calls")"
# the same calls as root without the filter
kernel=$(enter_as_root alice /home/alice/system_call native <<<"$calls")
same "number of answers" "$(wc -l <<<"$calls")" "$(wc -l <<<"$kernel")"
refused grep -E ' (EPERM|0|SIG.*|absent)$' <<<"$(may_be_locked_down "$kernel")"
EOF
}

@test "the installed filter matches the rules, call by call on every table" {
    on_two_accounts <<'EOF'
check=$programs/../../check_filter
# filter_of SECONDS: compares the filter of a process that sleeps that long in the account's
# container
filter_of() {
    kivctl exec alice <<<"sleep $1 >/dev/null 2>&1 & disown -a"
    "$check" "$(pgrep --uid alice --full "sleep $1")"
}
capture filter_of 600
same "exit status" 0 "$status"
same "tables that are not as the rules mean" "" "$(tail -n +2 <<<"$out" | grep -v "all as the rules mean it$")"
capture "$check" $$
same "exit status for a process without a filter" "1 check_filter: the process has none" "$status $err"
printf '%s\n' seccomp "    allow pivot_root" >>"$configuration"
capture filter_of 601
same "exit status under other rules" 1 "$status"
[[ $out == *" pivot_root "*": 0x7fff0000, not 0x50001"* ]]
EOF
}

@test "32-bit calls pass the same filter" {
    [ "$(uname -m)" = x86_64 ] || skip "no second gate on this architecture"
    on_two_accounts <<'EOF'
calls="$denied_calls
clock_adjtime64 0 1
_sysctl 1
clock_settime64 0 1
stime 1
sysfs 0xff
umount 1
uselib 1
ustat 0xffffffff 1
vm86 0xffff 1
vm86old 1"
wanted=EPERM
gate=$(enter alice /home/alice/system_call i386 getpid)
if [ "$gate" != 0 ]; then
    wanted=SIGSEGV # a kernel without 32-bit calls ends the process
    same "a kernel without the 32-bit gate" SIGSEGV "$gate"
fi
same "answers to the account" "$(answered "$wanted" "$calls")" "$(inside alice '~/system_call i386' <<<"$calls")"
kernel=$(enter_as_root alice /home/alice/system_call i386 <<<"$calls")
same "number of answers" "$(wc -l <<<"$calls")" "$(wc -l <<<"$kernel")"
refused grep -E ' (EPERM|0|absent)$' <<<"$(may_be_locked_down "$kernel")"
EOF
}

@test "numbers of x32 are answered like on a kernel without x32" {
    [ "$(uname -m)" = x86_64 ] || skip "no such interface on this architecture"
    on_two_accounts <<'EOF'
calls="getpid
sched_yield
$denied_calls"
calls=$(grep -v ^nfsservctl <<<"$calls") # has no number there
same "answers to the account" "$(answered ENOSYS "$calls")" "$(inside alice '~/system_call x32' <<<"$calls")"
EOF
}

@test "numbers of x32 pass the same filter when the table is allowed" {
    [ "$(uname -m)" = x86_64 ] || skip "no such interface on this architecture"
    on_two_accounts <<'EOF'
printf '%s\n' seccomp "    allow-table x32" >>"$configuration"
calls=$(grep -v ^nfsservctl <<<"$denied_calls") # has no number there
same "answers to the account" "$(answered EPERM "$calls")" "$(inside alice '~/system_call x32' <<<"$calls")"
same "another call" "$(enter alice /home/alice/system_call x32 getpid)" "$(inside alice '~/system_call x32 getpid')"
kernel=$(enter_as_root alice /home/alice/system_call x32 <<<"$calls")
refused grep -E ' (EPERM|0|SIG.*|absent)$' <<<"$kernel"
EOF
}

@test "a denied table ends a process that uses it, and no other" {
    [ "$(uname -m)" = x86_64 ] || skip "no other table is tried on this architecture"
    on_two_accounts <<'EOF'
before=$(enter alice /home/alice/system_call i386 getpid)
printf '%s\n' seccomp "    deny-table i386 arm" >>"$configuration"
wanted=SIGSYS
[ "$before" = 0 ] || wanted=SIGSEGV # a kernel without 32-bit calls ends the process
same "answer to i386" "$wanted" "$(inside alice '~/system_call i386 getpid')"
same "answer to the machine's own" 0 "$(inside alice '~/system_call native getpid')"
printf '%s\n' "    allow-table i386" >>"$configuration"
same "answer to i386 when it is allowed again" "$before" "$(inside alice '~/system_call i386 getpid')"
EOF
}

@test "no socket reaches the hypervisor, and others can be created on every interface" {
    on_two_accounts <<'EOF'
calls="socket 40 1 0
socket 40 2 0
socket 0xfeed00000028 1 0"
same "answers to the account" "$(answered EPERM "$calls")" "$(inside alice '~/system_call native' <<<"$calls")"
same "a socket of another family" 0 "$(inside alice '~/system_call native socket 1 1 0')"
if [ "$(uname -m)" = x86_64 ] && [ "$(enter alice /home/alice/system_call i386 getpid)" = 0 ]; then
    same "answer to i386" EPERM "$(inside alice "~/system_call i386 socket 40 1 0")"
    same "another family" 0 "$(inside alice "~/system_call i386 socket 1 1 0")"
    same "the number that sockets share" EFAULT "$(inside alice "~/system_call i386 socketcall 1 1")"
fi
kernel=$(enter alice /home/alice/system_call native <<<"$calls")
refused grep ' EPERM$' <<<"$kernel"
printf '%s\n' seccomp "    allow socket" >>"$configuration"
same "answers without the rule" "$kernel" "$(inside alice '~/system_call native' <<<"$calls")"
EOF
}

# ask_about is perl code: asks for information about a process with many structure sizes, and prints
# the kinds of answers.
# shellcheck disable=SC2016 # for perl
export ask_about='use Errno;
require "syscall.ph";
my $process = syscall(SYS_pidfd_open(), $ARGV[0] + 0, 0);
die "no process\n" if $process < 0;
my %answers;
for my $size (0, 8, 63 .. 66, 72, 80, 88, 128, 1024, 16383) {
    for my $direction (0 .. 3) {
        my $asked = pack("Q", 3) . "\0" x 16384;
        my $failed = syscall(SYS_ioctl(), $process, $direction << 30 | $size << 16 | 0xff0b, $asked) < 0;
        $answers{$failed ? (grep { $!{$_} } qw(EPERM EINVAL ENOTTY))[0] : 0}++;
    }
}
print join(" ", sort keys %answers), "\n";'

@test "no information is given about a process that is hidden in /proc" {
    on_two_accounts <<'EOF'
same "entry in /proc" ENOENT "$(inside alice '~/system_call native access @/proc/1 0')"
same "answers to the account" EPERM "$(inside alice 'perl -e "$1" 1' "$ask_about")"
answers=$(enter alice perl -e "$ask_about" 1)
refused grep EPERM <<<"$answers"
printf '%s\n' seccomp "    allow ioctl" >>"$configuration"
same "answers without the rule" "$answers" "$(inside alice 'perl -e "$1" 1' "$ask_about")"
EOF
}

@test "with no_new_privs in the configuration a program cannot gain a group" {
    on_two_accounts <<'EOF'
install -m 2755 -g mail "$(command -v id)" /home/alice/id_mail
state() { inside alice 'awk "/^NoNewPrivs/ { print \$2 }" /proc/self/status; ~/id_mail -g'; }
same "from the start" "0
$(getent group mail | cut -d: -f3)" "$(state)"
printf '%s\n' seccomp "    no_new_privs" >>"$configuration"
same "with the item" "1
$(id -g alice)" "$(state)"
EOF
}

@test "clone3 fails with ENOSYS, so that the C library uses clone" {
    on_two_accounts <<'EOF'
same "answer to the account" ENOSYS "$(inside alice '~/system_call native clone3 1 0')"
same "answer without the filter" EINVAL "$(enter alice /home/alice/system_call native clone3 1 0)"
same "a thread" run "$(inside alice 'perl -Mthreads -e "print threads->create(sub { q(run) })->join"')"
if [ "$(uname -m)" = x86_64 ]; then
    [[ $(inside alice '~/system_call i386 clone3 1 0') == @(ENOSYS|SIGSEGV) ]]
    printf '%s\n' seccomp "    allow-table x32" >>"$configuration"
    same "answer to x32" ENOSYS "$(inside alice '~/system_call x32 clone3 1 0')"
fi
EOF
}

@test "calls similar to the denied ones are allowed" {
    on_two_accounts <<'EOF'
# with an invalid flag, which the kernel checks before it refuses namespaces of other kinds
wanted="ioctl 0xffffffff 0x5411 1 EBADF
ioctl 0xffffffff 0x5413 1 EBADF
ioctl 0xffffffff 0x541b 1 EBADF
ioctl 0xffffffff 0x541d 1 EBADF
ioctl 0xffffffff 0x5422 1 EBADF
ioctl 0xffffffff 0x5424 1 EBADF
ioctl 0xffffffff 0xff0a 1 EBADF
ioctl 0xffffffff 0xff0c 1 EBADF
socket 0x27 0xffff 0 EINVAL
mbind 1 0 0xff 0 0 0xffff EINVAL
process_vm_readv 0x7fffffff 0 0 0 0 0xff EINVAL
ioctl 0xffffffff 0x541200005411 1 EBADF
clone 0x6e020200 EINVAL
unshare 0x6e020001 EINVAL
unshare 0x400 0
name_to_handle_at 0xffffffff 1 1 1 0 EFAULT
clock_gettime 0 1 EFAULT
ptrace 0x4206 0x7fffffff ESRCH"
same answers "$wanted" "$(inside alice '~/system_call native' <<<"$(sed 's/ [^ ]*$//' <<<"$wanted")")"
EOF
}

@test "five values of personality are harmless, and every other one is denied" {
    on_two_accounts <<'EOF'
values() {
    local bit
    printf '%s\n' 0 0x8 0x20000 0x20008 0xffffffff 0x40000 0x20009 0x60008 0x400000 0xfffdfff7 0xfffffffe
    for ((bit = 0; bit < 32; bit++)); do
        printf '%#x\n' $((1 << bit)) $((0xffffffff ^ 1 << bit)) $((0x20008 | 1 << bit))
    done
}
# wanted HARMLESS: prints the calls, with this answer for the harmless ones
wanted() {
    local value answer
    while read -r _ value; do
        answer=EPERM
        case $((value & 0xffffffff)) in
            0 | 8 | 131072 | 131080 | 4294967295) answer=$1 ;;
        esac
        echo "personality $value $answer"
    done <<<"$calls"
}
calls=$(values | sed 's/^/personality /')
# the kernel uses only 32 bits of it
calls+=$'\n'$(values | while read -r value; do printf 'personality %#x\n' $((value | 1 << 40)); done)
same "number of values" 214 "$(wc -l <<<"$calls")"
same "answers" "$(wanted 0)" "$(inside alice '~/system_call native' <<<"$calls")"
refused grep -v ' 0$' <<<"$(enter alice /home/alice/system_call native <<<"$calls")"
[ "$(uname -m)" = x86_64 ] || exit 0
if [ "$(enter alice /home/alice/system_call i386 getpid)" = 0 ]; then
    same "answers to i386" "$(wanted 0)" "$(inside alice '~/system_call i386' <<<"$calls")"
fi
printf '%s\n' seccomp "    allow-table x32" >>"$configuration"
same "answers to x32" "$(wanted "$(enter alice /home/alice/system_call x32 getpid)")" \
    "$(inside alice '~/system_call x32' <<<"$calls")"
EOF
}

@test "an item that allows a call removes its whole rule and no other" {
    on_two_accounts <<'EOF'
printf '%s\n' seccomp "    allow keyctl unshare clone3" "    allow ioctl" "    allow personality" \
    >>"$configuration"
wanted="keyctl 0xffff EOPNOTSUPP
unshare 0x10000001 EINVAL
clone3 1 0 EINVAL
ioctl 0xffffffff 0x5412 1 EBADF
ioctl 0xffffffff 0x541c 1 EBADF
personality 0x40000 0
add_key 1 1 1 1 0 EPERM
clone 0x10000200 EPERM
setns 0xffffffff 0 EPERM"
same answers "$wanted" "$(inside alice '~/system_call native' <<<"$(sed 's/ [^ ]*$//' <<<"$wanted")")"
EOF
}

@test "every denied call can be allowed by its name" {
    on_two_accounts <<'EOF'
names=$(awk '/^[a-z]/ { print $1 }' <<<"$denied_calls" | sort -u)
printf '%s\n' seccomp "    allow ${names//$'\n'/ }" >>"$configuration"
same answers "$(enter alice /home/alice/system_call native <<<"$denied_calls")" \
    "$(inside alice '~/system_call native' <<<"$denied_calls")"
EOF
}

@test "an item that denies a call, with the word or by a bare name, applies on every interface" {
    on_two_accounts <<'EOF'
calls="vmsplice 0xffffffff 1 1 0
sched_yield
semget 0 0xffffffff 0"
same before "vmsplice 0xffffffff 1 1 0 EBADF
sched_yield 0
semget 0 0xffffffff 0 EINVAL" "$(inside alice '~/system_call native' <<<"$calls")"
printf '%s\n' seccomp "    allow-table x32" "    deny vmsplice sched_yield" "    semget" >>"$configuration"
wanted=$(answered EPERM "$calls")
same after "$wanted" "$(inside alice '~/system_call native' <<<"$calls")"
same "another call" 0 "$(inside alice '~/system_call native getpid')"
[ "$(uname -m)" = x86_64 ] || exit 0
same "after, x32" "$wanted" "$(inside alice '~/system_call x32' <<<"$calls")"
if [ "$(enter alice /home/alice/system_call i386 getpid)" = 0 ]; then
    same "after, i386" "$(head -2 <<<"$wanted")" "$(inside alice '~/system_call i386' <<<"$(head -2 <<<"$calls")")"
    # there semget has its own number, and an older one that it shares with similar calls
    same "after, own number" EPERM "$(inside alice '~/system_call i386 semget 0 0xffffffff 0')"
    same "after, shared number" EPERM "$(inside alice '~/system_call i386 ipc 2 0 0xffffffff 0')"
fi
EOF
}

@test "an item that kills ends the process with SIGSYS" {
    on_two_accounts <<'EOF'
same before 0 "$(inside alice '~/system_call native sched_yield')"
printf '%s\n' seccomp "    allow-table x32" "    kill sched_yield mount" >>"$configuration"
same after SIGSYS "$(inside alice '~/system_call native sched_yield')"
same "a denied call" SIGSYS "$(inside alice '~/system_call native mount 1 1 1 0 1')"
same "another call" 0 "$(inside alice '~/system_call native getpid')"
[ "$(uname -m)" = x86_64 ] || exit 0
same "after, x32" SIGSYS "$(inside alice '~/system_call x32 sched_yield')"
[[ $(inside alice '~/system_call i386 sched_yield') == SIG@(SYS|SEGV) ]]
EOF
}

@test "of two items about a call the later one counts" {
    on_two_accounts <<'EOF'
answer_with() {
    cp "$project/dist/kiv.conf" "$configuration"
    printf '%s\n' seccomp "$@" >>"$configuration"
    inside alice '~/system_call native sched_yield'
}
same "deny after kill" EPERM "$(answer_with "    kill sched_yield" "    deny sched_yield")"
same "kill after deny" SIGSYS "$(answer_with "    deny sched_yield" "    kill sched_yield")"
same "allow after both" 0 "$(answer_with "    deny sched_yield" "    kill sched_yield" "    allow sched_yield")"
same "deny after allow" EPERM "$(answer_with "    allow sched_yield" "    sched_yield")"
EOF
}
