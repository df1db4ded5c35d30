#!/usr/bin/env bats
# What kiv-run leaves in the system log.
load helpers

# A log at /dev/log whose datagrams go into /tmp/log, one a line.
serve_log() {
    python3 -c '
import socket
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.bind("/dev/log")
while True:
    line = log.recv(65536) + b"\n"
    open("/tmp/log", "ab").write(line)' &
    eventually test -S /dev/log
}

# logged EXPRESSION: such a line comes.
logged() { eventually grep -qaE "$1" /tmp/log; }
export -f serve_log logged

@test "each entry is one line of authpriv.info with login user id, terminal, account and command" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
touch /tmp/log
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
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
touch /tmp/log
serve_log
"$project/tests/e2e/on_terminal" kiv-run -T alice true </dev/null
logged ' terminal=/dev/pts/[0-9]+ account=alice command=true$'
EOF
}
export project

@test "a refusal is a line of authpriv.warning with its reason" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /tmp/log
serve_log
fails 125 kiv-run root id 2>/dev/null
logged '^<84>.*kiv-run\[[0-9]+\]: refused \(root: cannot create container for uid 0\): loginuid=.* account=root command=id$'
fails 125 kiv-run alice id 2>/dev/null
logged '^<84>.*: refused \(/run/kiv/alice@net: container is not running, .*account=alice command=id$'
same lines 2 "$(wc -l </tmp/log)"
EOF
}

@test "control characters are escaped, and a line is of 1 KiB at most" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
touch /tmp/log
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

@test "the log is the host's: kiv-run connects before it joins, and the line comes from inside" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
touch /tmp/log
serve_log
strace -o /tmp/trace -e trace=setns,connect,write,sendto kiv-run alice true
same order "connect setns setns setns write" "$(grep -E 'setns|/dev/log|<86>' /tmp/trace | sed 's/(.*//' | xargs)"
EOF
}

@test "without a log, and with one that does not read, a command runs at once" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
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
