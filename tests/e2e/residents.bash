# Functions that put processes into containers; needs on_host.bash.

# resident NAME KINDS COMMAND…: runs a program in those namespaces of the account (net, ipc, mnt,
# separated by commas), as the account, in the background. Its process ID is in `pid`, its output
# goes to /tmp/said. On return the process has executed the program.
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

# said TEXT: waits for the latest resident's first line, which must be TEXT.
said() {
    until grep -qxF "$1" /tmp/said; do
        sleep 0.01
    done
}

# runs PID: the process must exist and not be a zombie.
runs() { grep -qs '^State:[^Z]*$' "/proc/$1/status"; }

# until_ended PID: waits up to two seconds for its end.
until_ended() {
    local try
    for ((try = 0; try < 200; try++)); do
        runs "$1" || return 0
        sleep 0.01
    done
    echo "process $1 is still there" >&2
    return 1
}

# lock_is_free NAME: no process may hold the account's lock.
lock_is_free() {
    python3 -c '
import fcntl, pwd, sys
with open("/run/kiv/.lock", "r+") as lock:
    try:
        fcntl.lockf(lock, fcntl.LOCK_EX | fcntl.LOCK_NB, 1, pwd.getpwnam(sys.argv[1]).pw_uid)
    except BlockingIOError:
        sys.exit(1)' "$1"
}

# paused NAME PID, resumed PID: a stop of the account waits two seconds for processes, without the
# lock. On a busy machine the test's own steps may take longer.
paused() {
    kill -STOP "$2"
    until lock_is_free "$1"; do
        kill -CONT "$2"
        sleep 0.02
        kill -STOP "$2"
    done
}
resumed() { kill -CONT "$1"; }

# timed COMMAND…: captures the command and sets `took` to its time in milliseconds.
timed() {
    local began=${EPOCHREALTIME/[.,]/}
    capture "$@"
    took=$(((${EPOCHREALTIME/[.,]/} - began) / 1000))
}

# at_least LEAST: `took` must reach that many milliseconds. There is no upper limit, because the
# machine may be busy.
at_least() {
    if ((took < $1)); then
        echo "took $took ms, not $1 or more" >&2
        return 1
    fi
}

# sooner_than MOST: `took` must be less than that many milliseconds, for steps that must not wait.
sooner_than() {
    if ((took >= $1)); then
        echo "took $took ms, not less than $1" >&2
        return 1
    fi
}

# state: prints what start creates on the host and stop must remove.
state() {
    cut -d" " -f4,5 /proc/self/mountinfo
    iptables-save | grep -v '^[#:]' | sed 's/\[[0-9:]*\]//'
    ip -o link | cut -d: -f2 | cut -d@ -f1
    ls /run/kiv
}

# settled_state: the same, after the kernel has removed the pairs of ended networks.
settled_state() {
    local try
    for ((try = 0; try < 100; try++)); do
        compgen -G '/sys/class/net/veth-*' >/dev/null || break
        sleep 0.02
    done
    state
}
