#!/usr/bin/env bats
# The properties of an account's shell after exec, as the kernel shows them from inside.
load helpers

# Prints the status file of the process that exec becomes, before a shell changes anything: the
# account's shell is a program that prints its standard input.
untouched_status() {
    usermod --shell /bin/cat "$1"
    bash -c "exec kivctl exec $1 </proc/self/status"
}
export -f untouched_status

@test "the shell runs as the account and its group, without any other group" {
    in_host <<'EOF'
account alice 100.64.0.4/30
groupadd staffers
usermod --append --groups staffers alice
kivctl start alice >/dev/null
same id "uid=$(id -u alice)(alice) gid=$(id -g alice)(alice) groups=$(id -g alice)(alice)" \
    "$(kivctl exec alice <<<id)"
uid=$(id -u alice) gid=$(id -g alice)
seen=$(untouched_status alice)
same uid "Uid:	$uid	$uid	$uid	$uid" "$(grep ^Uid: <<<"$seen")"
same gid "Gid:	$gid	$gid	$gid	$gid" "$(grep ^Gid: <<<"$seen")"
same groups "Groups:	$gid " "$(grep ^Groups: <<<"$seen")"
EOF
}

@test "the shell inherits only the caller's first three descriptors" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
same "few open" "0 1 2" "$(kivctl exec alice <<<'ls /proc/$$/fd' | xargs)"
for ((i = 3; i <= 60; i++)); do
    eval "exec $i</etc/passwd"
done
exec 5</run/kiv
same "many open" "0 1 2" "$(kivctl exec alice <<<'ls /proc/$$/fd' | xargs)"
EOF
}

@test "without close_range, too, the shell has only the first three descriptors" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
exec 7</etc/passwd 42</run/kiv 1000</etc/shadow
for error in ENOSYS EPERM; do
    injected "close_range:error=$error" kivctl exec alice <<<'ls /proc/$$/fd | xargs'
    same "status with $error" 0 "$status"
    same "descriptors with $error" "0 1 2" "${out##*$'\n'}"
done
injected close_range:error=EINVAL kivctl exec alice <<<'echo a shell'
same "another error" "71 kivctl: close_range() failed: Invalid argument" "$status $err"
EOF
}

@test "descriptors that the caller has closed lead nowhere" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf '#!/bin/bash\nreadlink /proc/$$/fd/{0,1} >&2\n' >/usr/local/bin/probe
chmod 755 /usr/local/bin/probe
usermod --shell /usr/local/bin/probe alice
kivctl start alice >/dev/null
kivctl exec alice <&- >&- 2>/tmp/seen
same "the first two" $'/dev/null\n/dev/null' "$(cat /tmp/seen)"
EOF
}

@test "the shell is in the three namespaces that the runtime directory holds" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
inside=$(kivctl exec alice <<<'for kind in net ipc mnt; do readlink "/proc/$$/ns/$kind"; done')
wanted=$(for kind in net ipc mnt; do echo "$kind:[$(stat -Lc %i "/run/kiv/alice@$kind")]"; done)
same namespaces "$wanted" "$inside"
same "the others" "$(readlink /proc/$$/ns/{pid,uts,user,cgroup})" \
    "$(kivctl exec alice <<<'readlink /proc/$$/ns/{pid,uts,user,cgroup}')"
same root "/" "$(kivctl exec alice <<<'readlink /proc/$$/root')"
refused enter_as_root alice test -e /run/kiv/alice@net
refused kivctl exec alice <<<'touch /etc/probe 2>/dev/null'
EOF
}

@test "the shell has no capability, can gain none, and is under the filter" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
seen=$(untouched_status alice)
same status "CapInh:	0000000000000000
CapPrm:	0000000000000000
CapEff:	0000000000000000
CapBnd:	0000000000000000
CapAmb:	0000000000000000
NoNewPrivs:	0
Seccomp:	2
Seccomp_filters:	1" "$(grep -E '^(Cap|NoNewPrivs|Seccomp)' <<<"$seen")"
EOF
}

@test "an inheritable capability of the caller does not reach the shell" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
usermod --shell /bin/cat alice
seen=$(setpriv --inh-caps +net_raw,+chown --ambient-caps +net_raw,+chown \
    bash -c 'exec kivctl exec alice </proc/self/status')
same sets "0000000000000000" "$(awk '/^Cap/ { print $2 }' <<<"$seen" | sort -u)"
EOF
}

@test "signals have their defaults in the shell" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
seen=$(untouched_status alice)
same signals "SigPnd:	0000000000000000
SigBlk:	0000000000000000
SigIgn:	0000000000000000
SigCgt:	0000000000000000" "$(grep -E '^Sig(Pnd|Blk|Ign|Cgt)' <<<"$seen")"
usermod --shell /bin/bash alice
same "a closed pipe" 141 "$(kivctl exec alice <<<'yes | true; echo ${PIPESTATUS[0]}')"
EOF
}

# with_signals is perl: runs a command with all signals "ignored", SIGHUP too for "hangup", or "blocked".
# shellcheck disable=SC2016 # for perl
export with_signals='use POSIX;
my %kinds = map { $_ => 1 } split(",", shift);
require "syscall.ph";
my $ignore = pack("Q4", 1, 0, 0, 0);
for my $signal (1 .. 64) {
    next if !$kinds{ignored} || $signal == SIGHUP && !$kinds{hangup};
    syscall(SYS_rt_sigaction(), $signal, $ignore, 0, 8); # also those that the C library refuses
}
my $all = POSIX::SigSet->new;
$all->fillset;
sigprocmask(SIG_BLOCK, $all) if $kinds{blocked};
exec @ARGV;'

@test "no signal that the caller ignores or blocks stays so for the shell, except SIGHUP ignored by nohup" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
usermod --shell /bin/cat alice
program=$(command -v kivctl)
# standard input is the status of the process that becomes perl, then kivctl, then cat
seen_with() { perl -e "$with_signals" "$1" "$program" exec alice </proc/self/status | grep -E '^Sig(Blk|Ign)'; }
seen_of_caller() { perl -e "$with_signals" "$1" grep -E '^Sig(Blk|Ign)' /proc/self/status; }
# all possible signals, except those that perl and grep use themselves
[[ $(seen_of_caller ignored,hangup) == *"SigIgn:	ffffffff"* ]]
[[ $(seen_of_caller blocked) == *"SigBlk:	fffffff"* ]]
none="SigBlk:	0000000000000000
SigIgn:	0000000000000000"
same "all ignored" "${none%0}1" "$(seen_with ignored,hangup)"
same "all but SIGHUP ignored" "$none" "$(seen_with ignored)"
same "all blocked" "$none" "$(seen_with blocked)"
same "all ignored and blocked" "${none%0}1" "$(seen_with ignored,hangup,blocked)"
EOF
}

@test "SIGTERM ends a program of the shell even if the caller ignores or blocks it" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
trap '' TERM
kivctl exec alice <<<'exec sleep 600' &
trap - TERM
running() { [ "$(cat "/proc/$!/comm")" = sleep ]; }
eventually running
kill -TERM $!
sleep 1
refused running
fails 143 wait $!
EOF
}

@test "the shell's environment is HOME and at most PATH, TERM, LANG and TZ" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
names=(LC_ALL=C LANGUAGE=de HOME=/root USER=root LOGNAME=root SHELL=/bin/sh MAIL=/x PWD=/x OLDPWD=/x
    BASH_ENV=/x ENV=/x LD_DEBUG_OUTPUT=/x SSH_AUTH_SOCK=/x SUDO_USER=x TERMCAP=x PATHS=x)
same all "HOME=/home/alice
LANG=C.UTF-8
PATH=$PATH
TERM=vt52
TZ=Europe/Berlin" "$(env -i "${names[@]}" PATH="$PATH" TERM=vt52 LANG=C.UTF-8 TZ=Europe/Berlin kivctl exec alice \
    <<<'tr "\0" "\n" <"/proc/$$/environ" | sort')"
program=$(command -v kivctl)
same none "HOME=/home/alice" "$(env -i "$program" exec alice <<<'/usr/bin/tr "\0" "\n" <"/proc/$$/environ"')"
EOF
}

@test "the shell starts at home, under its full path and without arguments, in the process of kivctl" {
    in_host <<'EOF'
account alice 100.64.0.4/30
cp /bin/bash "/usr/local/bin/some shell"
usermod --shell "/usr/local/bin/some shell" alice
kivctl start alice >/dev/null
cd /usr
kivctl exec alice >/tmp/seen <<'END' &
pwd
od -An -c "/proc/$$/cmdline"
readlink /proc/$$/exe
echo $$ $PPID
shopt -q login_shell || echo no login shell
END
child=$!
wait "$child"
same seen "/home/alice
   /   u   s   r   /   l   o   c   a   l   /   b   i   n   /   s
   o   m   e       s   h   e   l   l  \\0
/usr/local/bin/some shell
$child $$
no login shell" "$(cat /tmp/seen)"
EOF
}

@test "the shell's exit status is that of kivctl, and a signal that ends it too" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
for status in 0 1 64 71 255; do
    fails "$status" kivctl exec alice <<<"exit $status"
done
fails 137 kivctl exec alice <<<'kill -KILL $$' 2>/dev/null
fails 143 kivctl exec alice <<<'kill -TERM $$' 2>/dev/null
EOF
}

@test "standard input reaches the shell byte for byte, and only its output comes out" {
    in_host <<'EOF'
account alice 100.64.0.4/30
usermod --shell /bin/cat alice
kivctl start alice >/dev/null
head -c 300000 /dev/urandom >/tmp/bytes
cmp /tmp/bytes <(kivctl exec alice </tmp/bytes)
kivctl exec alice </tmp/bytes >/tmp/bytes.back 2>/tmp/errors
cmp /tmp/bytes /tmp/bytes.back
same stderr "" "$(cat /tmp/errors)"
cmp /tmp/bytes <(kivctl -d exec alice </tmp/bytes)
EOF
}

@test "of several password entries with one user ID the first supplies home and shell" {
    in_host <<'EOF'
account alice 100.64.0.4/30
useradd --non-unique --uid "$(id -u alice)" --gid users --home-dir /srv --no-create-home --shell /bin/false bob
echo "bob net=100.64.0.8/30" >>"$registry"
kivctl start bob >/dev/null
same "shell, home and group" "/bin/bash /home/alice $(id -g alice)" "$(kivctl exec bob <<<'echo "$0 $HOME $(id -g)"')"
same "mount namespace" "mnt:[$(stat -Lc %i /run/kiv/bob@mnt)]" "$(kivctl exec bob <<<'readlink /proc/$$/ns/mnt')"
EOF
}

@test "an account that is not in the registry can be entered while its container runs" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
for text in "" "alice net=nonsense" "= = ="; do
    echo "$text" >"$registry"
    same stdout in "$(kivctl exec alice <<<'echo in')"
done
rm "$registry"
same stdout in "$(kivctl exec alice <<<'echo in')"
EOF
}

@test "exec reads the password file once, and is the first user of its number" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
usermod --shell /bin/true alice
strace -e trace=openat -o /tmp/trace kivctl exec alice >/dev/null
same "passes" 1 "$(grep -c '"/etc/passwd"' /tmp/trace)"
mkdir -m 0755 /home/alice/first
sed -i "1i first:x:$(id -u alice):$(id -g alice)::/home/alice/first:/bin/sh" /etc/passwd
same "home" "/home/alice/first" "$(echo 'pwd' | kivctl exec alice)"
EOF
}
