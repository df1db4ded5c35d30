#!/usr/bin/env bats
# kiv-run without an own terminal: the command's process and its properties, as the kernel shows
# them.
load helpers
load with_alice

@test "the command runs as the account in its container, without capabilities and under the filter" {
    in_host <<'EOF'
account alice 100.64.0.4/30
groupadd staffers
usermod --append --groups staffers alice
kivctl start alice >/dev/null
uid=$(id -u alice) gid=$(id -g alice)
seen=$(kiv-run alice cat /proc/self/status)
same uid "Uid:	$uid	$uid	$uid	$uid" "$(grep ^Uid: <<<"$seen")"
same gid "Gid:	$gid	$gid	$gid	$gid" "$(grep ^Gid: <<<"$seen")"
same groups "Groups:	$gid " "$(grep ^Groups: <<<"$seen")"
same rights "CapInh:	0000000000000000
CapPrm:	0000000000000000
CapEff:	0000000000000000
CapBnd:	0000000000000000
CapAmb:	0000000000000000
NoNewPrivs:	0
Seccomp:	2" "$(grep -E '^(Cap|NoNewPrivs|Seccomp:)' <<<"$seen")"
inside=$(kiv-run alice sh -c 'for kind in net ipc mnt; do readlink "/proc/$$/ns/$kind"; done')
wanted=$(for kind in net ipc mnt; do echo "$kind:[$(stat -Lc %i "/run/kiv/alice@$kind")]"; done)
same namespaces "$wanted" "$inside"
same cgroup "0::/user.slice/user-$uid.slice/kiv" "$(kiv-run alice grep ^0: /proc/self/cgroup)"
EOF
}

@test "kiv-run becomes the command: it is the same process, and no other one stays" {
    with_alice <<'EOF'
kiv-run -T alice sleep 600 &
child=$!
running() { [ "$(cat "/proc/$child/comm")" = sleep ]; }
eventually running
same "processes of the container" "$child" "$(cat "/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv/cgroup.procs")"
refused pgrep -x kiv-run
kill -TERM "$child"
fails 143 wait "$child"
EOF
}

@test "the arguments arrive unchanged, without a shell in between" {
    with_alice <<'EOF'
arguments=('' ' ' 'a b' '$HOME' '`id`' "'" '"' '*' ';' $'line\nline' $'\x01\xff' -T -- --help '\')
same arguments "$(printf '<%s>' "${arguments[@]}")" "$(kiv-run alice printf '<%s>' "${arguments[@]}")"
same "an option behind USER" "-T" "$(kiv-run alice echo -T)"
EOF
}

@test "arguments of 128 KiB in total arrive complete" {
    with_alice <<'EOF'
arguments=()
for ((i = 0; i < 128; i++)); do
    printf -v argument '%01024d' "$i"
    arguments+=("$argument")
done
same arguments "$(printf '%s\n' "${arguments[@]}" | sha256sum)" \
    "$(kiv-run alice printf '%s\n' "${arguments[@]}" | sha256sum)"
printf -v argument '%0131000d' 7
same "one argument" "131000" "$(kiv-run alice sh -c 'echo "${#1}"' sh "$argument")"
EOF
}

@test "one -- directly after USER is dropped, and a second one belongs to the command" {
    with_alice <<'EOF'
same dropped in "$(kiv-run alice -- echo in)"
same "before USER too" in "$(kiv-run -T -- alice echo in)"
capture kiv-run alice -- -- echo in
same "the second one" "127 kiv-run: --: No such file or directory" "$status $err"
same "no command" "-bash" "$(kiv-run alice -- <<<'echo "$0"')"
EOF
}

@test "without a command the login shell runs as a login shell" {
    with_alice <<'EOF'
kiv-run alice >/tmp/seen <<'END' &
echo "$0 $$"
shopt -q login_shell && echo login shell

END
child=$!
wait "$child"
same seen "-bash $child
login shell" "$(cat /tmp/seen)"
fails 7 kiv-run alice <<<'exit 7'
sed -i 's|^\(alice:.*\):[^:]*$|\1:|' /etc/passwd
same "an entry without a shell" "-sh /bin/sh" "$(kiv-run alice <<<'echo "$0 $SHELL"')"
EOF
}

@test "an account with nologin runs commands; without one it gets nologin's text and status" {
    in_host <<'EOF'
account alice 100.64.0.4/30
usermod --shell /usr/sbin/nologin alice
kivctl start alice >/dev/null
same command alice "$(kiv-run alice id -un)"
capture kiv-run alice
same "without command" "1 This account is currently not available." "$status $out"
EOF
}

@test "the environment is the account's, with the caller's TERM, LANG and TZ, and nothing else" {
    with_alice <<'EOF'
printf '# ENV_PATH /wrong\nENV_PATHS /wrong\nENV_SUPATH\tPATH=/sbin\nENV_PATH\tPATH=/bin:/opt/bin\n' >/etc/login.defs
names=(LC_ALL=C LANGUAGE=de HOME=/root USER=root LOGNAME=root SHELL=/bin/sh MAIL=/x PWD=/x BASH_ENV=/x ENV=/x
    LD_DEBUG_OUTPUT=/x SSH_AUTH_SOCK=/x SUDO_USER=x LISTEN_FDS=1 LISTEN_PID=1 LISTEN_FDNAMES=x NOTIFY_SOCKET=/x)
account="HOME=/home/alice
LOGNAME=alice
PATH=/bin:/opt/bin
SHELL=/bin/bash
USER=alice"
seen_with() { env -i "$@" cat /proc/self/environ | tr '\0' '\n' | LC_ALL=C sort; }
program=$(command -v kiv-run)
same all "$(LC_ALL=C sort <<<"$account"$'\n'"LANG=C.UTF-8
TERM=vt52
TZ=Europe/Berlin")" "$(seen_with "${names[@]}" PATH=/sbin TERM=vt52 LANG=C.UTF-8 TZ=Europe/Berlin "$program" alice)"
same none "$account" "$(seen_with "$program" alice)"
rm /etc/login.defs
same "PATH without a file" "/bin:/usr/bin" "$(kiv-run alice sh -c 'echo "$PATH"')"
EOF
}

@test "-e adds and replaces variables, and the last one of a name wins" {
    with_alice <<'EOF'
same variables "1= 2=a=b HOME=/other USER=me" "$(kiv-run -e ONE=x -e TWO=a=b -e HOME=/other -e USER=me -e ONE= alice \
    sh -c 'echo "1=$ONE 2=$TWO HOME=$HOME USER=$USER"')"
same "each once" 1 "$(kiv-run -e HOME=/a -e HOME=/b alice cat /proc/self/environ | tr '\0' '\n' | grep -c ^HOME=)"
for text in NAME =value ''; do
    capture kiv-run -e "$text" alice echo a command
    same "-e '$text'" "125  kiv-run: '$text' is not NAME=VALUE" "$status $out $err"
done
EOF
}

@test "the command is searched in its own PATH, not in the caller's" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /opt/caller /opt/inside
printf '#!/bin/sh\necho "$0"\n' | tee /opt/caller/probe >/opt/inside/probe
chmod 755 /opt/*/probe
kivctl start alice >/dev/null
PATH="/opt/caller:$PATH" fails 127 kiv-run alice probe 2>/dev/null
same "with -e" /opt/inside/probe "$(kiv-run -e PATH=/opt/inside:/bin alice probe)"
echo 'ENV_PATH "/nowhere:/opt/inside:/bin"' >/etc/login.defs
same "of login.defs" /opt/inside/probe "$(kiv-run alice probe)"
# a file that may not be executed does not hide a later one
mkdir /opt/first
touch /opt/first/probe
same "behind another" /opt/inside/probe "$(kiv-run -e PATH=/opt/first:/opt/inside alice probe)"
EOF
}

@test "the exit status is the command's, 126 when it cannot be executed and 127 when it does not exist" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -m 0644 /bin/true /usr/local/bin/not-executable
install -m 0755 /dev/null /usr/local/bin/no-interpreter
printf 'echo ran\n' >/usr/local/bin/script
chmod 755 /usr/local/bin/script
kivctl start alice >/dev/null
for wanted in 0 1 125 126 255; do
    fails "$wanted" kiv-run alice sh -c "exit $wanted"
done
fails 137 kiv-run alice sh -c 'kill -KILL $$' 2>/dev/null
while IFS='|' read -r command wanted reason; do
    capture kiv-run alice "$command"
    same "answer to '$command'" "$wanted  kiv-run: $command: $reason" "$status $out $err"
done <<'END'
none|127|No such file or directory
/none|127|No such file or directory
|127|No such file or directory
not-executable|126|Permission denied
/usr/local|126|Permission denied
/usr/local/bin/script|126|Exec format error
script|126|Exec format error
no-interpreter|126|Exec format error
/bin/true/x|126|Not a directory
END
usermod --shell /none alice 2>/dev/null
capture kiv-run alice
same "a shell that does not exist" "127 kiv-run: /none: No such file or directory" "$status $err"
EOF
}

@test "the working directory is the home, or that of -C, entered as the account" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -d -o alice -g alice /home/alice/site
install -d -m 0700 /opt/closed
kivctl start alice >/dev/null
cd /usr
same home /home/alice "$(kiv-run alice pwd)"
same relative /home/alice/site "$(kiv-run -C site alice pwd)"
same absolute /usr/share "$(kiv-run -C /usr/share alice pwd)"
same "above the home" /home "$(kiv-run -C .. alice pwd)"
while IFS='|' read -r directory reason; do
    capture kiv-run -C "$directory" alice echo a command
    same "answer to '$directory'" "125  kiv-run: chdir($directory) failed: $reason" "$status $out $err"
done <<'END'
none|No such file or directory
|No such file or directory
/opt/closed|Permission denied
/bin/true|Not a directory
END
chown root: /home/alice
chmod 700 /home/alice
capture kiv-run alice pwd
same "a closed home" "0 / chdir(/home/alice) failed: Permission denied" "$status $out $err"
usermod --home /nowhere alice
capture kiv-run alice pwd
same "no home" "0 / chdir(/nowhere) failed: No such file or directory" "$status $out $err"
same "absolute without a home" "/usr" "$(kiv-run -C /usr alice pwd)"
capture kiv-run -C site alice pwd
same "relative without a home" "125  kiv-run: chdir(/nowhere) failed: No such file or directory" "$status $out $err"
EOF
}

@test "the umask is 022, or that of -u" {
    with_alice <<'EOF'
umask 077
same default 0022 "$(kiv-run alice sh -c umask)"
same "with --start" 0022 "$(kiv-run --start alice sh -c umask)"
same given 0007 "$(kiv-run -u 7 alice sh -c umask)"
same zero 0000 "$(kiv-run -u 000 alice sh -c umask)"
EOF
}

@test "the command has descriptors 0 to 2 and no other" {
    with_alice <<'EOF'
for ((i = 3; i <= 60; i++)); do
    eval "exec $i</etc/passwd"
done
exec 5</run/kiv
# 3 is that of the listing itself
same "open ones" "0 1 2 3" "$(kiv-run alice ls /proc/self/fd | xargs)"
kiv-run alice sh -c 'for i in 0 1; do readlink "/proc/$$/fd/$i"; done | cat >&2' <&- >&- 2>/tmp/seen
same "closed ones" $'/dev/null\n/dev/null' "$(cat /tmp/seen)"
EOF
}

@test "--preserve-fds keeps that many descriptors for socket activation" {
    with_alice <<'EOF'
echo three >/tmp/three
echo four >/tmp/four
exec 3</tmp/three 4</tmp/four 5</run/kiv
show='cat <&3; cat <&4; echo "$LISTEN_FDS $((LISTEN_PID - $$))"; echo "${LISTEN_FDNAMES-none}"'
same kept "three
four
2 0
none" "$(LISTEN_FDS=9 LISTEN_PID=1 LISTEN_FDNAMES=x kiv-run --preserve-fds 2 alice dash -c "$show")"
# 5 is that of the listing itself
same "open ones" "0 1 2 3 4 5" "$(kiv-run --preserve-fds 2 alice ls /proc/self/fd | xargs)"
same "with --start" three "$(exec 3</tmp/three; kiv-run --start --preserve-fds 1 alice sh -c 'cat <&3')"
same "not asked for" "none none" "$(LISTEN_FDS=1 LISTEN_PID=1 kiv-run alice sh -c \
    'echo "${LISTEN_FDS-none} ${LISTEN_PID-none}"')"
exec 4<&-
capture kiv-run --preserve-fds 3 alice echo a command
same "a closed one" "125  kiv-run: descriptor 4: Bad file descriptor" "$status $out $err"
EOF
}

@test "host tools of --start do not get the preserved descriptors" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'ls -l /proc/self/fd >>/tmp/open; exec "$real" "$@"'
touch /tmp/preserved
kiv-run --start --preserve-fds 1 alice true 3</tmp/preserved
test -s /tmp/open
refused grep preserved /tmp/open
EOF
}

@test "signals have their defaults, also SIGHUP, even if the caller ignores or blocks them" {
    with_alice <<'EOF'
seen=$(env --ignore-signal --block-signal kiv-run alice cat /proc/self/status | grep -E '^Sig(Blk|Ign|Cgt)')
same signals "SigBlk:	0000000000000000
SigIgn:	0000000000000000
SigCgt:	0000000000000000" "$seen"
EOF
}

@test "standard input, output and error are the caller's, byte for byte" {
    with_alice <<'EOF'
head -c 300000 /dev/urandom >/tmp/bytes
kiv-run alice cat </tmp/bytes >/tmp/bytes.back
cmp /tmp/bytes /tmp/bytes.back
capture kiv-run alice sh -c 'echo out; echo err >&2'
same streams "out err" "$out $err"
EOF
}

@test "once it has joined, kiv-run opens no file of the container and connects to nothing" {
    with_alice <<'EOF'
strace -f -o /tmp/trace -e trace=setns,open,openat,connect,execve kiv-run alice true
same "the next two calls" $'execve("/usr/local/bin/true\nexecve("/usr/bin/true' \
    "$(sed '1,/setns(.*NEWNS/d' /tmp/trace | sed -n '1,2s/^[0-9]* *\([^"]*"[^"]*\).*/\1/p')"
EOF
}

@test "every user may ask for help and version" {
    in_host <<'EOF'
install -m 0755 "$(command -v kiv-run)" /usr/local/bin/for-everybody
LD_LIBRARY_PATH=$(dirname "$KIVCTL")/../lib
export LD_LIBRARY_PATH
for option in -h --help; do
    capture setpriv --reuid nobody --clear-groups for-everybody "$option"
    same "status of $option" "0 " "$status $err"
    same "first line of $option" "Usage: kiv-run [options] USER [COMMAND [ARGUMENT]...]" "${out%%$'\n'*}"
done
for option in -v --version; do
    capture setpriv --reuid nobody --clear-groups for-everybody "$option" ignored
    same "version" "0 $(kivctl -v)" "$status $out"
done
EOF
}
