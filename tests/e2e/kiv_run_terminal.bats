#!/usr/bin/env bats
# kiv-run on a terminal: the command gets one of the container's, and the caller's is out of its
# reach.
load helpers
load with_alice

@test "on a terminal the command gets one of the container's as its controlling terminal, in a new session" {
    with_alice <<'EOF'
on_terminal kiv-run alice bash --norc <<'END' >/tmp/shown
expect \$ $
type tty; stat -c "owner %U" "$(tty)"; set -o | grep monitor\n
expect ^/dev/pts/0$
expect ^owner alice$
expect ^monitor\s+on$
type echo here >/dev/tty\n
expect ^here$
type exit\n
END
refused grep -i "job control" /tmp/shown
same "asked for" /dev/pts/0 "$(kiv-run -t alice tty | tr -d '\r')"
fails 1 on_terminal kiv-run -T alice tty </dev/null >/tmp/shown # the caller's is not among the container's
same "not wanted" "not a tty" "$(cat /tmp/shown)"
same "in a pipe" "not a tty" "$(kiv-run alice tty </dev/null || true)"
EOF
}

@test "Ctrl-C and Ctrl-Z reach the programs inside" {
    with_alice <<'EOF'
fails 3 on_terminal kiv-run alice bash --norc <<'END' >/tmp/shown
expect \$ $
type perl -e '$| = 1; print "run\x6eing\\n"; sleep 60'\n
expect ^running$
type \x03
expect \$ $
type bash -c 'echo wait"ing"; read -r line; echo "read: $line"'\n
expect ^waiting$
type \x1a
expect Stopped
expect \$ $
type fg\n
expect ^bash -c
type words\n
expect ^read: words$
expect \$ $
type (exit 3)\n
expect \$ $
type \x04
END
EOF
}

@test "a change of the window's size reaches the command" {
    with_alice <<'EOF'
on_terminal kiv-run alice bash --norc <<'END' >/tmp/shown
expect \$ $
type stty size\n
expect ^24 80$
expect \$ $
type perl -e '$| = 1; $SIG{WINCH} = sub { print "window\n"; exit }; print "run\x6eing\n"; sleep 60'\n
expect ^running$
resize 50 132
expect ^window$
expect \$ $
type stty size\n
expect ^50 132$
type exit\n
END
EOF
}

@test "a terminal that is closed ends the command and its programs by SIGHUP" {
    with_alice <<'EOF'
# the program itself says that it is running: bash does not hang up a job that it is still forking
leaf=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv
fails 129 on_terminal kiv-run alice bash --norc <<'END' >/tmp/shown
expect \$ $
type perl -e '$| = 1; print "run\x6eing\n"; sleep 600'\n
expect ^running$
hang-up
END
is_empty() { [ -z "$(cat "$leaf/cgroup.procs")" ]; }
eventually is_empty
refused pgrep -x kiv-run
EOF
}

@test "processes that the account leaves running read nothing that is typed afterwards" {
    with_alice <<'EOF'
cat >/usr/local/bin/reader <<'END'
#!/usr/bin/perl
$SIG{HUP} = $SIG{TTIN} = $SIG{TTOU} = "IGNORE";
open(my $log, ">>", "/home/alice/read");
$log->autoflush(1);
print $log "begun\n";
for my $path ("/dev/tty", "/dev/fd/0") {
    next if fork;
    open(my $terminal, "+<", $path) or exit;
    print $log "open\n";
    while (1) {
        ioctl($terminal, 0x5410, pack("i", getpgrp())); # TIOCSPGRP
        my $line = <$terminal>;
        print $log "got $line" if defined $line;
        select(undef, undef, undef, 0.01);
    }
}
END
chmod 755 /usr/local/bin/reader
on_terminal bash --norc -i <<'END' >/tmp/shown
expect # $
type kiv-run alice\n
expect \$ $
type reader & sleep 0.5; exit\n
expect # $
type echo sec"ret" one\n
expect ^secret one$
expect # $
type echo sec"ret" two\n
expect ^secret two$
expect # $
type exit\n
END
grep -q open /home/alice/read
refused grep got /home/alice/read
EOF
}

@test "the relaying process is outside, has no rights, and has only the terminals open" {
    with_alice <<'EOF'
exec 7</run/kiv
cat >/tmp/look <<'END'
relay=$(pgrep -x kiv-run -u nobody)
grep -E '^(Uid|Gid|Groups|Cap(Prm|Eff|Inh|Amb)|NoNewPrivs):' "/proc/$relay/status"
[ "/proc/$relay/ns/mnt" -ef /proc/self/ns/mnt ] && echo outside
for descriptor in /proc/$relay/fd/*; do readlink "$descriptor"; done | sed 's/[0-9]*$//' | sort -u | xargs
END
on_terminal bash --norc -c 'bash -c "sleep 1; bash /tmp/look" >/tmp/seen 2>&1 & kiv-run alice sleep 3' </dev/null
wait
same seen "Uid:	65534	65534	65534	65534
Gid:	65534	65534	65534	65534
Groups:	65534 
CapInh:	0000000000000000
CapPrm:	0000000000000000
CapEff:	0000000000000000
CapAmb:	0000000000000000
NoNewPrivs:	1
outside
/dev/ptmx /dev/pts/ anon_inode:[signalfd]" "$(cat /tmp/seen)"
EOF
}

@test "the exit status is the command's, 128 plus the signal's number, or kiv-run's own" {
    with_alice <<'EOF'
fails 7 kiv-run -t alice sh -c 'exit 7'
fails 137 kiv-run -t alice sh -c 'kill -KILL $$'
same "closed descriptors" 9 "$(kiv-run -t alice sh -c 'exec <&- >&- 2>&-; sleep 0.5; exit 9'; echo $?)"
fails 127 kiv-run -t alice none >/tmp/seen
capture kiv-run -t alice none
same "not found" "127 kiv-run: none: No such file or directory" "$status $err"
kivctl stop alice >/dev/null
capture kiv-run -t alice true
same "not running" "125 kiv-run: /run/kiv/alice@net: container is not running, start it with: kivctl start alice" \
    "$status $err"
capture kiv-run -t root true
same "refused" "125 kiv-run: root: cannot create container for uid 0" "$status $err"
EOF
}

@test "the terminal is restored after the command and after a signal" {
    with_alice <<'EOF'
on_terminal bash --norc -i <<'END' >/tmp/shown
expect # $
type stty -g >/tmp/before; kiv-run alice sh -c 'stty raw; exit 4'; echo "status $?"; stty -g >/tmp/after\n
expect ^status 4$
expect # $
type kiv-run alice sh -c 'echo be"gun"; exec sleep 600'; echo "status $?"\n
expect ^begun$
type \x03
expect status 130$
expect # $
type (sleep 1; pkill -TERM -x kiv-run) & kiv-run alice sleep 600; echo "ended $?"; stty -g >/tmp/killed\n
expect ^ended 143$
expect # $
type exit\n
END
same "after the command" "$(cat /tmp/before)" "$(cat /tmp/after)"
same "after a signal" "$(cat /tmp/before)" "$(cat /tmp/killed)"
EOF
}

@test "all output of the command arrives even if it leaves processes running" {
    with_alice <<'EOF'
same output "$(seq 100000 | sed 's/$/\r/' | md5sum)" "$(kiv-run -t alice seq 100000 | md5sum)"
same "with a leftover" "begun" "$(timeout 20 kiv-run -t alice sh -c \
    'trap "" HUP; sleep 600 & echo begun' </dev/null | tr -d '\r')"
fails 129 bash -c 'timeout 20 kiv-run -t alice yes </dev/null | head -n 1 >/dev/null; exit ${PIPESTATUS[0]}'
EOF
}

@test "the end of a pipe is an end of file inside" {
    with_alice <<'EOF'
same "whole lines" 2 "$(printf 'one\ntwo\n' | timeout 20 kiv-run -t alice wc -l | tail -n 1 | tr -d '\r')"
same "an unfinished line" 7 "$(printf 'one\ntwo' | timeout 20 kiv-run -t alice wc -c | tail -n 1 | tr -d '\r\n' | tail -c 1)"
same "nothing" 0 "$(timeout 20 kiv-run -t alice wc -c </dev/null | tail -n 1 | tr -d '\r\n' | tail -c 1)"
EOF
}

@test "the end of a pipe is one end of file: a process that reads on waits" {
    with_alice <<'EOF'
# read returns 1 at an end of file, and more than 128 at a timeout
reads_on() { timeout 20 kiv-run -t alice bash -c 'cat >/dev/null; read -rt 0.3 || printf "\nstatus %d" $(($? > 128))' | tr -d '\r'; }
for text in '' 'line\n' 'unfinished' 'line\r'; do
    printf '%b' "$text" | reads_on >/tmp/seen
    same "after '$text'" "status 1" "$(tail -n 1 /tmp/seen)"
done
# a terminal without lines gets only the character
type_x() { eventually test -e /home/alice/raw && printf x; }
same "without lines" "x 4" "$(type_x | timeout 20 kiv-run -t alice bash -c 'stty raw -echo; touch raw
    read -rN 1 first; read -rN 1 second; printf "%s %d" "$first" "'"'"'$second"; read -rt 0.3 -N 1 && echo " and more"' || true)"
EOF
}

@test "input from a pipe is typed: Ctrl-C interrupts, and a line has at most 4095 bytes" {
    with_alice <<'EOF'
fails 130 timeout 20 kiv-run -t alice sleep 10 < <(printf '\3') >/dev/null
printf '%05000d' 0 | timeout 20 kiv-run -t alice wc -c >/tmp/seen
grep -qE '(^|0)4095.?$' /tmp/seen # after the echo, if there is one
EOF
}

@test "standard error stays separate when it is not a terminal, and LISTEN_PID is the command's" {
    with_alice <<'EOF'
capture kiv-run -t alice sh -c 'echo out; echo err >&2'
same streams $'out\r err' "$out $err"
exec 3</etc/hostname 4<&-
same "preserved" "0 1" "$(kiv-run -t --preserve-fds 1 alice dash -c 'echo "$((LISTEN_PID - $$)) $LISTEN_FDS"' | tr -d '\r')"
# 4 is that of the listing itself
same "open ones" "0 1 2 3 4" "$(kiv-run -t --preserve-fds 1 alice ls /proc/self/fd | tr -d '\r' | xargs)"
EOF
}
