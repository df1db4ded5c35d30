#!/usr/bin/env bats
# Attacks by an account from the shell of exec, and the errors that it gets. When two barriers
# protect the same thing, each is also tested alone.
load helpers
load with_attacks

@test "nothing can be mounted or unmounted, and the root directory stays" {
    on_two_accounts <<'EOF'
as_uid_0
calls="mount @none @/tmp @tmpfs 0 0
mount @/etc @/tmp 0 0x1000 0
mount 0 @/ 0 0x1020 0
umount2 @/proc/irq 2
pivot_root @/tmp @/tmp
fsopen @tmpfs 0
open_tree 0xffffff9c @/etc 1
fspick 0xffffff9c @/ 0
chroot @/tmp"
same "answers to the account" "$(answered EPERM "$calls")" "$(inside alice '~/system_call native' <<<"$calls")"
same "answers to uid 0" "$(answered EPERM "$calls")" "$(inside alice '~/system_call_root native' <<<"$calls")"

# without the filter, the missing capability prevents it
printf '%s\n' seccomp "    allow mount umount2 pivot_root fsopen open_tree fspick" >>"$configuration"
same "answers without the filter" "$(answered EPERM "$calls")" \
    "$(inside alice '~/system_call_root native' <<<"$calls")"

# without both, nothing prevents it
printf '%s\n' cap_add "    sys_admin" "    sys_chroot" >>"$configuration"
calls=$(grep -E '^(mount @none|umount2|fsopen|open_tree|fspick|chroot)' <<<"$calls")
same "answers with the capability" "$(answered 0 "$calls")" "$(inside alice '~/system_call_root native' <<<"$calls")"
EOF
}

@test "with the capability the filter still denies mounts" {
    on_two_accounts <<'EOF'
as_uid_0
printf '%s\n' cap_add "    CAP_SYS_ADMIN" >>"$configuration"
same "answer to mount" EPERM "$(inside alice '~/system_call_root native mount @none @/tmp @tmpfs 0 0')"
same "answer to sethostname" 0 "$(inside alice '~/system_call_root native sethostname @simulated 9')"
EOF
}

@test "no new user namespace can be created" {
    on_two_accounts <<'EOF'
same "answer to the account" EPERM "$(inside alice '~/system_call native unshare 0x10000000')"
same "answer with other kinds" EPERM "$(inside alice '~/system_call native unshare 0x3e020000')"
same "answer to clone" EPERM "$(inside alice '~/system_call native clone 0x10000011 0 0 0 0')"
same "answer to clone3" ENOSYS "$(inside alice '~/system_call native clone3 1 88')"
capture inside alice 'unshare --user --map-root-user id -u'
[[ $err == *"unshare failed: Operation not permitted" ]]
# other kinds need the capability, which only a user namespace would give
for flag in 0x20000 0x02000000 0x04000000 0x08000000 0x20000000 0x40000000; do
    same "answer to $flag" EPERM "$(inside alice '~/system_call native unshare $1' $flag)"
done
kernel=$(enter alice /home/alice/system_call native unshare 0x10000000)
printf '%s\n' seccomp "    allow unshare" >>"$configuration"
same "answer without the rule" "$kernel" "$(inside alice '~/system_call native unshare 0x10000000')"
EOF
}

@test "no namespace that is found under /proc and no process can be joined" {
    on_two_accounts <<'EOF'
outside alice sleep 600
answers=$(inside alice 'perl -e "$1" "${@:2}"' "$join_all" 1 "$pid" $$)
[[ $answers =~ ^"namespace EPERM "([0-9]+)$'\n'"process EPERM "([0-9]+)$ ]]
# its own process, and the one outside with the host's namespaces
((BASH_REMATCH[1] >= 20 && BASH_REMATCH[2] >= 12))
inside alice 'test -r /proc/$1/ns/mnt' "$pid"
# root inside the container's namespaces can
answers=$(enter_as_root alice perl -e "$join_all" 1 "$pid" $$)
[[ $answers == *"process 0 "* ]]
EOF
}

@test "only home, /tmp and device nodes that everyone may write can be written" {
    on_two_accounts <<'EOF'
install -d -m 777 /srv/open # the read-only error comes before that of permissions
touch /srv/open/file
chmod 666 /srv/open/file
same "what can be written" "/dev/full
/dev/null
/dev/ptmx
/dev/random
/dev/tty: ENXIO
/dev/urandom
/dev/zero
/home/alice/
/tmp/" "$(inside alice 'setsid --wait ~/writable /' | without_strays | sort |
    grep -v '^/home/alice/.')"
EOF
}

@test "the keys of the administrator's session stay outside" {
    on_two_accounts <<'EOF'
cat >>"$configuration" <<'END'
seccomp
    allow keyctl add_key request_key
END
administrators_key_is_out_of_reach
same "a key of its own" 0 "$(inside alice '~/system_call native add_key @user @mine @text 4 -3')"
EOF
}

@test "if a new session keyring fails there is no shell, except on a kernel without keyrings" {
    on_two_accounts <<'EOF'
for error in EDQUOT EPERM ENOMEM; do
    injected "keyctl:error=$error" kivctl exec alice <<<'echo a shell'
    same "status with $error" 71 "$status"
    [[ $err == "kivctl: cannot leave the caller's session keyring: "* ]]
    refused grep "a shell" <<<"$out"
done
injected keyctl:error=ENOSYS kivctl exec alice <<<'echo a shell'
same "status without keys" 0 "$status"
[[ $out == *"a shell" ]]
EOF
}

@test "while exec enters the container, the account's processes there cannot access it" {
    on_two_accounts <<'EOF'
hold inside kivctl exec alice
same "namespace" "$(stat -Lc %i /run/kiv/alice@mnt)" "$(stat -Lc %i "/proc/$held/ns/mnt")"
same "user" 0 "$(stat -c %u "/proc/$held")"
same "from inside, before the change of user" "$nothing_reached" "$(inside alice '~/watch_process $1' "$held")"
same "entry in /proc" "" "$(inside alice 'ls /proc | grep -x $1' "$held" || true)"
same "signal" EPERM "$(inside alice '~/system_call native kill $1 9' "$held")"
kill -CONT "$held"
wait "$entering"

hold account kivctl exec alice
same "user" alice "$(awk '/^Uid:/ { print $2 }' "/proc/$held/status" | xargs id -nu)"
same "from inside, after the change of user" "$nothing_reached" "$(inside alice '~/watch_process $1' "$held")"
same "entry in /proc" "" "$(inside alice 'ls /proc | grep -x $1' "$held" || true)"
outside alice sleep 600
same "from the host, after the change of user" "$(sed 's/ENOENT/EACCES/' <<<"$nothing_reached")" \
    "$(setpriv --reuid alice --regid alice --init-groups "$programs/watch_process" "$held")"
kill -CONT "$held"
wait "$entering"
EOF
}

@test "a process that allows tracing can be accessed in every way" {
    on_two_accounts <<'EOF'
hold traceable kivctl exec alice
# Yama may allow tracing only of children, but does not prevent reading
tracing='^(mem|fd/0|process_vm|pidfd_getfd|PTRACE)'
[ "$(cat /proc/sys/kernel/yama/ptrace_scope 2>/dev/null || echo 0)" != 0 ] || tracing='^$'
same "from inside" "$(grep -vE "$tracing" <<<"mem 0
environ 0
maps 0
fd/0 0
root 0
cwd 0
exe 0
ns/mnt 0
process_vm_readv EFAULT
process_vm_writev EFAULT
pidfd_open 0
pidfd_getfd 0
PTRACE_SEIZE 0")" "$(inside alice '~/watch_process $1' "$held" | grep -vE "$tracing")"
kill -CONT "$held"
wait "$entering"
EOF
}

@test "no input can be inserted into the caller's terminal" {
    on_two_accounts <<'EOF'
# on_terminal COMMAND LINE: the answers that the shell's line leaves, with the command on a new terminal
on_terminal() {
    rm -f /home/alice/answers
    TERM=dumb script -qec "$1" /dev/null <<<"$2 >~/answers; exit" >/dev/null
    cat /home/alice/answers
}
calls="ioctl 0 0x5401 @$(printf '%064d' 0)
ioctl 0 0x5412 @:
ioctl 0 0x541c @:
ioctl 0 0x100005412 @:
ioctl 0 0xfeedbeef00005412 @:
ioctl 0 0xffffffff0000541c @:"
numbers=$(awk '{ print $3 }' <<<"$calls")
line='for number in '${numbers//$'\n'/ }'; do ~/system_call native ioctl 0 $number @:; done'
same "answers to the account" $'0\nEPERM\nEPERM\nEPERM\nEPERM\nEPERM' "$(on_terminal 'kivctl exec alice' "$line")"
# without the filter: newer kernels refuse the first with EIO, and the other works only on consoles
unfiltered="nsenter --net=/run/kiv/alice@net --ipc=/run/kiv/alice@ipc --mount=/run/kiv/alice@mnt \
    setpriv --reuid alice --regid alice --init-groups env HOME=/home/alice bash --norc"
[[ $(on_terminal "$unfiltered" "$line" | paste -sd' ') == @("0 0 ENOTTY 0 0 ENOTTY"|"0 EIO ENOTTY EIO EIO ENOTTY") ]]
EOF
}

@test "no cgroup file is within reach, and new processes stay in the account's leaf" {
    on_two_accounts <<'EOF'
leaf=user.slice/user-$(id -u alice).slice/kiv
capture inside alice 'grep cgroup /proc/self/mountinfo; ls -A /sys/fs/cgroup'
same mounts "" "$out"
[[ $err == *"No such file or directory" ]]
same "a process that has left its parent" "0::/$leaf" \
    "$(inside alice 'setsid --fork --wait sh -c "grep ^0:: /proc/self/cgroup"')"
# through the root of the account's own process outside
outside alice sleep 600
for file in cgroup.procs user.slice/cgroup.procs "$leaf/cgroup.procs" "${leaf%/kiv}/pids.max"; do
    capture inside alice 'echo 0 >"/proc/$1/root/sys/fs/cgroup/$2"' "$pid" "$file"
    [[ $err == *"$file: Permission denied" ]]
done
same "a new cgroup" EACCES \
    "$(inside alice '~/system_call native mkdir "@/proc/$1/root/sys/fs/cgroup/$2" 0755' "$pid" "$leaf/mine")"
EOF
}

@test "a set-user-ID root program gains no capability" {
    on_two_accounts <<'EOF'
as_uid_0
touch /home/alice/file
chown alice: /home/alice/file
calls="chown @/home/alice/file 0 0
chmod @/home/alice/file 0777
truncate @/home/alice/file 1
setuid $(id -u bob)
setgid 0
setgroups 0 0
mknod @/run/node 0x2180 0x103
sethostname @other 5
chroot @/
vhangup
setpriority 0 0 0xffffffff"
wanted=$(answered EPERM "$calls" | sed -E '/^truncate/s/EPERM/EACCES/; /^setpriority/s/EPERM/EACCES/')
same answers "$wanted" "$(inside alice '~/system_call_root native' <<<"$calls")"
install -m 4755 "$(command -v cat)" /home/alice/cat_root
same capabilities "CapInh CapPrm CapEff CapBnd CapAmb" "$(inside alice '~/cat_root /proc/self/status' |
    awk '/^Uid:/ && $3 != 0 { exit } /^Cap.*:\t0+$/ { sub(":", ""); print $1 }' | paste -sd' ')"
# only the capability that the administrator left in the bounding set is there
printf '%s\n' cap_add "    chown" >>"$configuration"
same "with the capability" 0 "$(inside alice '~/system_call_root native chown @/home/alice/file 0 0')"
EOF
}

@test "a set-user-ID root program can do whatever permissions allow root without capabilities" {
    on_two_accounts <<'EOF'
as_uid_0
as_uid_0 writable
# the container's own small /run, and bound files, which are the host's
same "what it can write" "/dev/full
/dev/null
/dev/ptmx
/dev/pts: EPERM
/dev/random
/dev/tty: ENXIO
/dev/urandom
/dev/zero
/etc/resolv.conf
/proc/bus/
/proc/driver/
/proc/fs/
/proc/irq/
/run/
/run/mysqld/
/run/utmp" "$(inside alice 'setsid --wait ~/writable_root /dev /etc /mnt /proc /run /srv /var' |
    without_strays | sort)"
# no PID namespace: signals to processes of the same user, so also to root's processes on the host
sleep 600 &
same "signal" 0 "$(inside alice '~/system_call_root native kill $1 15' $!)"
fails 143 wait $!
# reading and tracing need at least the target's capabilities
sleep 600 &
as_uid_0 watch_process
same "every other way" "ENOENT EPERM" "$(inside alice '~/watch_process_root $1' $! |
    awk '$1 != "pidfd_open" { print $2 }' | sort -u | paste -sd' ')"
EOF
}

@test "a set-group-ID program gains its group" {
    on_two_accounts <<'EOF'
install -m 2755 -g mail "$(command -v id)" /home/alice/id_mail
same "effective group" "$(getent group mail | cut -d: -f3)" "$(inside alice '~/id_mail -g')"
same "real group" "$(id -g alice)" "$(inside alice '~/id_mail -gr')"
same "no new privileges" 0 "$(inside alice 'awk "/^NoNewPrivs/ { print \$2 }" /proc/self/status')"
EOF
}
