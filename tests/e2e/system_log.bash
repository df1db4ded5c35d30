# Functions for the system log, for scripts on a simulated host.

# Starts a log at /dev/log that writes its datagrams to /tmp/log, one per line.
serve_log() {
    touch /tmp/log
    rm -f /dev/log
    python3 -c '
import socket
log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
log.bind("/dev/log")
while True:
    line = log.recv(65536) + b"\n"
    open("/tmp/log", "ab").write(line)' &
    eventually test -S /dev/log
}

# logged EXPRESSION: waits for a line that matches.
logged() { eventually grep -qaE "$1" /tmp/log; }
