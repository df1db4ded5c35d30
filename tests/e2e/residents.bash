# For scripts about processes in containers, on top of on_host.bash: words that put processes there.

# resident NAME KINDS COMMAND…: runs a program in those of the account's namespaces (net, ipc, mnt, separated by
# commas), as the account, in the background; its process id is left in `pid`, what it says goes to /tmp/said. It
# has become the program when this returns.
resident() {
    local kind kinds=()
    for kind in ${2//,/ }; do
        kinds+=("--${kind/mnt/mount}=/run/kiv/$1@$kind")
    done
    nsenter "${kinds[@]}" -- setpriv --reuid "$1" --regid "$(id -g "$1")" --init-groups -- "${@:3}" \
        </dev/null >/tmp/said 2>&1 &
    pid=$!
    disown "$pid"
    while [[ $(<"/proc/$pid/comm") =~ ^(bash|nsenter|setpriv|env)$ ]]; do
        sleep 0.01
    done
}

# said TEXT: the latest resident's first line, waited for.
said() {
    until grep -qxF "$1" /tmp/said; do
        sleep 0.01
    done
}

# runs PID: the process is there and is no zombie.
runs() { grep -qs '^State:[^Z]*$' "/proc/$1/status"; }

# until_ended PID: for up to two seconds.
until_ended() {
    local try
    for ((try = 0; try < 200; try++)); do
        runs "$1" || return 0
        sleep 0.01
    done
    echo "process $1 is still there" >&2
    return 1
}

# lock_is_free NAME: nobody holds the account's lock.
lock_is_free() {
    python3 -c '
import fcntl, pwd, sys
with open("/run/kiv/.lock", "r+") as lock:
    try:
        fcntl.lockf(lock, fcntl.LOCK_EX | fcntl.LOCK_NB, 1, pwd.getpwnam(sys.argv[1]).pw_uid)
    except BlockingIOError:
        sys.exit(1)' "$1"
}

# paused NAME PID, resumed PID: a stop of the account waits two seconds for processes, without the lock. What a test does
# meanwhile may last longer on a busy machine.
paused() {
    kill -STOP "$2"
    until lock_is_free "$1"; do
        kill -CONT "$2"
        sleep 0.02
        kill -STOP "$2"
    done
}
resumed() { kill -CONT "$1"; }

# timed COMMAND…: captures it and leaves the time it took, in milliseconds, in `took`.
timed() {
    local began=${EPOCHREALTIME/[.,]/}
    capture "$@"
    took=$(((${EPOCHREALTIME/[.,]/} - began) / 1000))
}

# at_least LEAST: milliseconds that `took` must reach. A busy machine has no most.
at_least() {
    if ((took < $1)); then
        echo "took $took ms, not $1 or more" >&2
        return 1
    fi
}

# sooner_than MOST: for what must not have waited out so many milliseconds.
sooner_than() {
    if ((took >= $1)); then
        echo "took $took ms, not less than $1" >&2
        return 1
    fi
}

# state: what start makes on the host and stop is to take away.
state() {
    cut -d" " -f4,5 /proc/self/mountinfo
    iptables-save | grep -v '^[#:]' | sed 's/\[[0-9:]*\]//'
    ip -o link | cut -d: -f2 | cut -d@ -f1
    ls /run/kiv
}

# settled_state: the same, once the kernel has removed the pairs of networks that are gone.
settled_state() {
    local try
    for ((try = 0; try < 100; try++)); do
        compgen -G '/sys/class/net/veth-*' >/dev/null || break
        sleep 0.02
    done
    state
}
