#!/usr/bin/env bats
# exec on a terminal, as a person uses it.
load helpers
load with_alice

@test "the line about the switch appears before the shell, which has job control" {
    with_alice <<'EOF'
on_terminal kivctl exec alice <<'END' >/tmp/shown
expect \ASwitching into container 'alice'\.\.\.\n
expect \$ $
type set -o | grep monitor\n
expect ^monitor\s+on$
expect \$ $
type exit\n
END
refused grep -i "job control" /tmp/shown
same "how often" 1 "$(grep -c Switching /tmp/shown)"
EOF
}

@test "on a terminal the line about the switch appears before that of a failure" {
    in_host <<'EOF'
account alice 100.64.0.4/30
fails 71 on_terminal kivctl exec alice </dev/null >/tmp/shown
same shown "Switching into container 'alice'...
kivctl: /run/kiv/alice@net: container is not running, start it with: kivctl start alice" "$(cat /tmp/shown)"
EOF
}

@test "Ctrl-C interrupts a program of the shell, and Ctrl-D ends the shell with its last status" {
    with_alice <<'EOF'
fails 130 on_terminal kivctl exec alice <<'END' >/tmp/shown
expect \$ $
type perl -e '$| = 1; print "run\x6eing\\n"; sleep 60'\n
expect ^running$
type \x03
expect \$ $
type echo "status $?"; (exit 130)\n
expect ^status 130$
expect \$ $
type \x04
END
EOF
}

@test "Ctrl-Z stops a program, and fg continues it with the terminal" {
    with_alice <<'EOF'
on_terminal kivctl exec alice <<'END' >/tmp/shown
expect \$ $
type bash -c 'echo wait"ing"; read -r line; echo "read: $line"'\n
expect ^waiting$
type \x1a
expect Stopped
expect \$ $
type jobs -r; jobs\n
expect ^\[1\]\+\s+Stopped
expect \$ $
type fg\n
expect ^bash -c
type words\n
expect ^read: words$
expect \$ $
type sleep 60 &\n
expect ^\[1\] \d+$
expect \$ $
type kill %1; wait %1\n
expect Terminated
expect \$ $
type exit 0\n
END
EOF
}

@test "exec is a job of the administrator's own shell, and gives the terminal back" {
    with_alice <<'EOF'
fails 5 on_terminal bash --norc -i <<'END' >/tmp/shown
expect # $
type kivctl exec alice\n
expect ^Switching
expect \$ $
type suspend\n
expect Stopped
expect # $
type id -un; fg\n
expect ^root$
expect \$ $
type id -un; exit 5\n
expect ^alice$
expect # $
type exit\n
END
refused grep -i "job control" /tmp/shown
EOF
}

@test "a change of the window's size reaches the shell and its programs" {
    with_alice <<'EOF'
on_terminal kivctl exec alice <<'END' >/tmp/shown
expect \$ $
type stty size\n
expect ^24 80$
expect \$ $
type perl -e '$| = 1; $SIG{WINCH} = sub { print "window\n"; exit }; print "run\x6eing\n"; sleep 60'\n
expect ^running$
resize 50 132
expect ^window$
expect \$ $
type stty size; echo "$LINES $COLUMNS"\n
expect ^50 132\n50 132$
expect \$ $
type exit\n
END
EOF
}

@test "lines can be edited, completed and called back" {
    with_alice <<'EOF'
on_terminal kivctl exec alice <<'END' >/tmp/shown
expect \$ $
type echo wrong\x15echo rigth\x14\n
expect ^right$
expect \$ $
type \x1b[A\x1b[D\x1b[D\x7f\x7f\x7fnow \n
expect ^now ht$
expect \$ $
type ls -d /home/ali\t\n
expect ^/home/alice/?$
expect \$ $
type exit\n
END
EOF
}

@test "programs that ask on the terminal itself find it" {
    with_alice <<'EOF'
on_terminal kivctl exec alice <<'END' >/tmp/shown
expect \$ $
type bash -c 'read -rsp "pass""word: " word </dev/tty 2>/dev/tty; echo "got ${#word}"' </dev/null 2>/dev/null\n
expect ^password: $
type secret\n
expect got 6$
expect \$ $
type exit\n
END
refused grep secret /tmp/shown
EOF
}

@test "a terminal that is closed ends the shell and its programs by SIGHUP" {
    with_alice <<'EOF'
# the program itself says that it is running: bash does not hang up a job that it is still forking
leaf=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv
fails 129 on_terminal kivctl exec alice <<'END' >/tmp/shown
expect \$ $
type perl -e '$| = 1; print "run\x6eing\n"; sleep 600'\n
expect ^running$
hang-up
END
is_empty() { [ -z "$(cat "$leaf/cgroup.procs")" ]; }
eventually is_empty
EOF
}
