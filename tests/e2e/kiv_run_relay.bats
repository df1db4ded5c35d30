#!/usr/bin/env bats
# The process of kiv-run that relays between two terminals: stops, full outputs and attacks.
load helpers
load with_alice

# signal_relay NAME FILE: signals the relaying process once the file is there.
signal_relay() {
    eventually test -e "$2"
    pkill "-$1" -u nobody -x kiv-run
}

# on_full_terminal PROGRAM COMMAND…: runs the command on a terminal that nobody reads, until no more
# output fits. Then the Python program continues, with the command's `process` and the other end of
# its terminal, `master`.
on_full_terminal() {
    python3 -c '
import os, pty, signal, sys, time
process, master = pty.fork()
if process == 0:
    os.execvp(sys.argv[2], sys.argv[2:])
def wait_for(state):
    deadline = time.monotonic() + 60
    while not state():
        if time.monotonic() > deadline:
            sys.exit("has not come true")
        time.sleep(0.05)
def written():
    return int(open(f"/proc/{process}/io").read().split("wchar: ")[1].split()[0])
def is_full():
    before = written()
    time.sleep(0.5)
    return written() == before > 0
wait_for(is_full)
exec(sys.argv[1])' "$@"
}
export -f signal_relay on_full_terminal

@test "a stop from outside restores the caller's terminal, and fg continues" {
    with_alice <<'EOF'
signal_relay TSTP /home/alice/ready &
# dash(1) restores no terminal itself
on_terminal dash -i <<'END' >/tmp/shown
expect # $
type stty -g >/tmp/before; kiv-run alice bash --norc\n
expect \$ $
type touch ready; sleep 1; echo mean"while"\n
expect Stopped
expect # $
type stty -g >/tmp/stopped; id -un; fg\n
expect ^root$
expect ^meanwhile$
expect \$ $
type perl -e '$| = 1; print "run\x6eing\\n"; sleep 60'\n
expect ^running$
type \x03
expect \$ $
type exit 7\n
expect # $
type echo "status $?"; stty -g >/tmp/after; exit\n
expect ^status 7$
END
same "while stopped" "$(cat /tmp/before)" "$(cat /tmp/stopped)"
same "afterwards" "$(cat /tmp/before)" "$(cat /tmp/after)"
EOF
}

@test "the terminal is restored whichever signal ends the relay" {
    with_alice <<'EOF'
for name in USR1 ALRM XCPU RTMIN; do
    rm -f /home/alice/ready
    signal_relay $name /home/alice/ready &
    export number
    number=$(kill -l "$name")
    on_terminal bash -c 'stty -g >/tmp/before
        kiv-run alice sh -c "touch ready; exec sleep 600" 2>/dev/null
        echo "ended $(($? - 128 - number))"; stty -g >/tmp/after' </dev/null >/tmp/shown
    grep -qx "ended 0" /tmp/shown
    same "after $name" "$(cat /tmp/before)" "$(cat /tmp/after)"
done
EOF
}

@test "a SIGHUP that the caller ignores ends neither the relay nor the command" {
    with_alice <<'EOF'
signal_relay HUP /home/alice/ready &
same output finished "$(nohup kiv-run -t alice sh -c 'touch ready; sleep 1; echo finished' </dev/null 2>/dev/null | tr -dc '[:lower:]')"
EOF
}

@test "the relay gets keys and signals even if nobody reads the output" {
    with_alice <<'EOF'
leaf=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice/kiv
export leaf
on_full_terminal '
os.write(master, b"\x03")
wait_for(lambda: open(os.environ["leaf"] + "/cgroup.procs").read() == "")
try:
    while os.read(master, 65536):
        pass
except OSError:
    pass
sys.exit(os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]) != 130)' kiv-run alice yes
on_full_terminal '
os.kill(process, signal.SIGTERM)
wait_for(lambda: os.waitpid(process, os.WNOHANG)[1] == signal.SIGTERM)' kiv-run alice yes
EOF
}

@test "another reader of the same terminal takes keys, and delays no output" {
    with_alice <<'EOF'
on_terminal bash -c 'exec 3<&0
    cat <&3 >/dev/null &
    kiv-run alice sh -c "for i in 1 2 3 4 5 6 7 8; do echo tick \$i; sleep 0.2; done"
    kill $!' <<'END' >/tmp/shown
expect tick 1
type a
expect tick 2
type a
expect tick 3
type a
expect tick 4
type a
expect tick 5
type a
expect tick 6
type a
expect tick 7
type a
expect tick 8
END
EOF
}

@test "a full output costs no processor time, and later gets all output of the command" {
    with_alice <<'EOF'
python3 -c '
import os, resource, subprocess, sys, time
reader, writer = os.pipe()
os.set_blocking(writer, False)
try:
    while os.write(writer, b"x"):
        pass
except BlockingIOError:
    pass
run = subprocess.Popen(["kiv-run", "-t", "alice", "seq", "1000"], stdin=subprocess.DEVNULL, stdout=writer)
time.sleep(2)
os.close(writer)
output = open(reader, "rb").read().lstrip(b"x").replace(b"\r", b"")
run.wait()
used = resource.getrusage(resource.RUSAGE_CHILDREN)
print(used.ru_utime + used.ru_stime < 1, output == b"".join(b"%d\n" % i for i in range(1, 1001)))' >/tmp/seen
same "little time, all output" "True True" "$(cat /tmp/seen)"
EOF
}

@test "neither a flood nor a hostile terminal makes the relay hang, spin or lose the status" {
    with_alice <<'EOF'
cat >/usr/local/bin/hostile <<'END'
#!/usr/bin/perl
use POSIX;
$SIG{HUP} = $SIG{TTIN} = $SIG{TTOU} = $SIG{PIPE} = "IGNORE";
if ($ARGV[0] eq "flood") {
    if (fork == 0) {
        syswrite(STDOUT, "flood\n" x 1000) while 1;
    }
    select(undef, undef, undef, 0.5);
} elsif ($ARGV[0] eq "alone") {
    ioctl(STDIN, 0x540c, 0); # TIOCEXCL
    POSIX::close($_) for 0 .. 2;
    select(undef, undef, undef, 2);
} elsif ($ARGV[0] eq "discipline") {
    for my $number (0 .. 26, 28 .. 40, 27) { # the last, N_NULL, is allowed to everyone
        my $discipline = pack("i", $number);
        ioctl(STDIN, 0x5423, $discipline); # TIOCSETD
    }
    select(undef, undef, undef, 2);
}
POSIX::_exit(9);
END
chmod 755 /usr/local/bin/hostile
for way in flood alone discipline; do
    on_terminal bash -c "stty -g >/tmp/before; time timeout --foreground 60 kiv-run alice hostile $way; echo \"status \$?\"; stty -g >/tmp/after" \
        </dev/null >/tmp/shown
    grep -aqx "status 9" /tmp/shown
    same "terminal after $way" "$(cat /tmp/before)" "$(cat /tmp/after)"
    # of the relay and the command; the flood is an orphan by now
    LC_ALL=C awk '$1 == "user" || $1 == "sys" { split($2, time, /[ms]/); sum += 60 * time[1] + time[2] } END { exit sum > 1 }' \
        <(tr -d '\r' </tmp/shown)
    pkill -KILL -u alice || true
done
EOF
}

@test "the command can neither insert keys into the caller's terminal nor find it" {
    with_alice <<'EOF'
cat >/usr/local/bin/push <<'END'
#!/usr/bin/perl
for my $path ("/dev/tty", map { "/proc/$_/fd/0" } $$, getppid()) {
    for my $number (0x5412, 0x100005412) { # TIOCSTI
        open(my $terminal, "+<", $path) or next;
        ioctl($terminal, $number, $_) for split(//, "touch /tmp/pushed\n");
    }
}
print join(" ", "terminals", sort grep { -c $_ } glob("/dev/pts/*")), "\n";
print join(" ", "of processes", grep { !m{^/dev/pts/0$} } map { readlink($_) // () } glob("/proc/[0-9]*/fd/[0-2]")), "\n";
END
chmod 755 /usr/local/bin/push
on_terminal bash --norc -i <<'END' >/tmp/shown
expect # $
type kiv-run alice push\n
expect ^terminals /dev/pts/0 /dev/pts/ptmx$
expect ^of processes *$
expect # $
type echo no"thing"\n
expect ^nothing$
expect # $
type exit\n
END
refused test -e /tmp/pushed
EOF
}
