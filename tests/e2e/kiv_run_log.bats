#!/usr/bin/env bats
# The lines of kiv-run in the system log.
load helpers
load with_alice
load system_log
export -f serve_log logged

@test "each entry is one line of authpriv.info with login user ID, terminal, account and command" {
    with_alice <<'EOF'
serve_log
kiv-run alice echo 'two words' >/dev/null
header='^<86>(Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 123][0-9] [0-9:]{8} kiv-run\[[0-9]+\]: '
logged "${header}entered: loginuid=([0-9]+|none) terminal=none account=alice command=echo two words\$"
kiv-run alice <<<true
logged "${header}entered: .* account=alice command=\(login shell\)\$"
same lines 2 "$(wc -l </tmp/log)"
EOF
}

@test "the terminal is named" {
    with_alice <<'EOF'
serve_log
on_terminal kiv-run -T alice true </dev/null
logged ' terminal=/dev/pts/[0-9]+ account=alice command=true$'
EOF
}
export project

@test "a refusal is a line of authpriv.warning with its reason" {
    in_host <<'EOF'
account alice 100.64.0.4/30
serve_log
fails 125 kiv-run root id 2>/dev/null
logged '^<84>.*kiv-run\[[0-9]+\]: refused \(root: cannot create container for uid 0\): loginuid=.* account=root command=id$'
fails 125 kiv-run alice id 2>/dev/null
logged '^<84>.*: refused \(/run/kiv/alice@net: container is not running, .*account=alice command=id$'
same lines 2 "$(wc -l </tmp/log)"
EOF
}

@test "every failure before the container is entered is a refusal" {
    with_alice <<'EOF'
serve_log
exec 3</etc/hostname 4<&- 5</etc/hostname
fails 125 kiv-run --preserve-fds 3 alice id 2>/dev/null
logged '^<84>.*: refused \(descriptor 4: Bad file descriptor\): .* account=alice command=id$'
injected socketpair:error=EMFILE kiv-run -t alice id
same "without a link to the terminal" 125 "$status"
logged '^<84>.*: refused \(socketpair\(\) failed: Too many open files\): .* account=alice command=id$'
injected clone:error=EAGAIN kiv-run -t alice id
logged '^<84>.*: refused \(fork\(\) failed: .*\): .* account=alice command=id$'
refused grep -q entered /tmp/log
EOF
}

@test "a failure after the entry is a refusal, too, which follows the line of the entry" {
    with_alice <<'EOF'
serve_log
fails 125 kiv-run -C none alice id 2>/dev/null
logged '^<84>.*: refused \(chdir\(none\) failed: No such file or directory\): .* account=alice command=id$'
same lines $'<86>\n<84>' "$(cut -c -4 /tmp/log)"
same "one process" 1 "$(grep -o 'kiv-run\[[0-9]*\]' /tmp/log | sort -u | wc -l)"
fails 125 kiv-run -t -C none alice id >/dev/null 2>&1
eventually awk 'END { exit NR != 4 }' /tmp/log
same lines $'<86>\n<84>\n<86>\n<84>' "$(cut -c -4 /tmp/log)"
enter_as_root alice umount /dev/pts
fails 125 kiv-run -t alice id 2>/dev/null
logged '^<84>.*: refused \(cannot open a terminal of the container: .*\): .* account=alice command=id$'
injected setresuid:error=EAGAIN kiv-run alice id
logged '^<84>.*: refused \(setuid\(\) failed: .*\): .* account=alice command=id$'
EOF
}

@test "a command line that is not understood leaves no line" {
    with_alice <<'EOF'
serve_log
fails 125 kiv-run -u 9 alice id 2>/dev/null
fails 125 kiv-run --nonsense alice id 2>/dev/null
fails 125 kiv-run 2>/dev/null
kiv-run alice true
logged 'entered'
same lines 1 "$(wc -l </tmp/log)"
EOF
}

@test "a descriptor with the number of a missing log is not passed on" {
    with_alice <<'EOF'
rm -f /dev/log
exec 3</etc/hostname 4</etc/hostname 5</etc/hostname
same "open ones" "0 1 2 3" "$(kiv-run alice ls /proc/self/fd | xargs)"
same "with one preserved" "0 1 2 3 4" "$(kiv-run --preserve-fds 1 alice ls /proc/self/fd | xargs)"
same "on a terminal" "0 1 2 3" "$(kiv-run -t alice ls /proc/self/fd | tr -d '\r' | xargs)"
EOF
}

@test "control characters are escaped, and a line has at most 1 KiB" {
    with_alice <<'EOF'
serve_log
kiv-run alice true $'new\nline\e[2J\x7f'
logged 'command=true new\\x0aline\\x1b\[2J\\x7f$'
same lines 1 "$(wc -l </tmp/log)"
printf -v long '%05000d' 7
kiv-run alice true "$long"
logged '00\.\.\.$'
same length 1024 "$(tail -n 1 /tmp/log | tr -d '\n' | wc -c)"
EOF
}

@test "bytes that are no character are escaped, because journalctl would show nothing of the line" {
    with_alice <<'EOF'
serve_log
kiv-run alice true $'caf\xe9 \x9b[2J caf\xc3\xa9'
logged 'command=true caf\\xe9 \\x9b\[2J caf'$'\xc3\xa9$'
EOF
}

@test "a long reason leaves room for the account and the command" {
    with_alice <<'EOF'
serve_log
printf -v long '%02000d' 0
fails 125 kiv-run -C "$long" alice echo text 2>/dev/null
logged '^<84>.*: refused \(chdir\(0+\.\.\.\): loginuid=.* terminal=none account=alice command=echo text$'
EOF
}

@test "the log is the host's: kiv-run connects before it joins, and the line comes from inside" {
    with_alice <<'EOF'
serve_log
strace -o /tmp/trace -e trace=setns,connect,write,sendto kiv-run alice true
same order "connect setns setns setns write" "$(grep -E 'setns|/dev/log|<86>' /tmp/trace | sed 's/(.*//' | xargs)"
EOF
}

@test "without a log, and with one that does not read, a command runs without delay" {
    with_alice <<'EOF'
rm -f /dev/log
same "no log" in "$(timeout 30 kiv-run alice echo in 2>&1)"
touch /dev/log
same "a file" in "$(timeout 30 kiv-run alice echo in 2>&1)"
rm /dev/log
python3 -c '
import socket, time
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.bind("/dev/log")
peer = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
peer.setblocking(False)
peer.connect("/dev/log")
try:
    while True:
        peer.send(b"full")
except BlockingIOError:
    open("/tmp/full", "w")
time.sleep(600)' &
eventually test -e /tmp/full
same "a blocked log" in "$(timeout 30 kiv-run alice echo in 2>&1)"
EOF
}
