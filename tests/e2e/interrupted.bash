# Loaded by the tests of interrupted runs after helpers.

# mark NAME [KINDS]: sets the mark as a killed start or stop leaves it; without kinds, as earlier
# versions did.
mark() {
    python3 -c 'import os, sys
os.setxattr("/run/kiv", "trusted.kiv.unfinished." + sys.argv[1], sys.argv[2].encode())' "$1" "${2:-}"
}

# runs_again NAME: the account is started, entered and stopped without a message, and nothing is
# left.
runs_again() {
    capture timeout 20 kivctl start "$1"
    same "status of start" 0 "$status"
    same "rules of the running container" 2 "$(iptables-save | grep -c "veth-$1")"
    same "marks beside the running container" "" "$(marks)"
    same "who is inside" "$1" "$(kivctl exec "$1" <<<'id -un')"
    same "address seen outside" 192.0.2.2 "$(enter "$1" bash -c 'cat </dev/tcp/198.51.100.1/80')"
    capture timeout 20 kivctl stop "$1"
    same "status of stop" 0 "$status"
    same "stderr of stop" "" "$err"
    same "files left" "" "$(ls /run/kiv)"
    same "marks left" "" "$(marks)"
    same "rules left" "" "$(iptables-save | grep veth || true)"
    eventually test ! -e "/sys/class/net/veth-$1"
}

# killed_and_busy KIND: kills alice's start while it builds; descriptor 9 then keeps that namespace
# busy.
killed_and_busy() {
    injected mount:signal=KILL:when=1 -P /mnt/temp-root kivctl start alice
    exec 9<"/run/kiv/alice@$1"
}
export -f mark runs_again killed_and_busy
