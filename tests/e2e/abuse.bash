# Functions for scripts that abuse a host; needs on_host.bash and residents.bash.

# rounds FULL SHORT: prints the number of rounds: FULL if KIVCTL_ABUSE_FULL is set in the caller's
# environment, else SHORT.
rounds() {
    if [ -n "${KIVCTL_ABUSE_FULL:-}" ]; then echo "$1"; else echo "$2"; fi
}

# The host's programs share one processor; a program that races with them must run on another.
all_processors=0-$(($(nproc --all) - 1))

# exchanging NAME PATH OTHER: the account exchanges the two names as fast as it can, until the host
# ends or `exchanger` is killed.
exchanging() {
    taskset --cpu-list "$all_processors" setpriv --reuid "$1" --regid "$(id -g "$1")" --clear-groups perl -e '
        require "syscall.ph";
        my ($path, $other) = @ARGV;
        syscall(SYS_renameat2(), -100, $path, -100, $other, 2) == 0 or die "renameat2: $!\n" while 1;
    ' "$2" "$3" &
    exchanger=$!
    disown "$exchanger"
    until [ -L "$2" ]; do sleep 0.001; done
}

# has_run STATUS: the last captured command exited with that status; neither a signal nor a time
# limit ended it.
has_run() { same "exit status" "$1" "$status"; }

# recovers NAME: stop, start, exec and stop bring the account's container into a clean running state
# and then a clean stopped one.
recovers() {
    capture timeout 30 kivctl stop "$1"
    same "status of the stop before" 0 "$status"
    same "files left by it" "" "$(files_of "$1")"
    pair_is_gone "$1"
    capture timeout 30 kivctl start "$1"
    same "status of a start" 0 "$status"
    same "live namespaces" $'net\nipc\nmnt' "$(mounted "$1")"
    same "type of the root" overlayfs "$(enter_as_root "$1" stat -f -c %T /)"
    same "who is inside" "$1" "$(timeout 30 kivctl exec "$1" <<<'id -un')"
    capture timeout 30 kivctl stop "$1"
    same "status of the stop after" 0 "$status"
    same "stderr of the stop after" "" "$err"
    same "files left after" "" "$(files_of "$1")"
    same "rules left after" "" "$(iptables-save | grep -F -e "-i veth-$1 " || true)"
}

# pair_is_gone NAME: the kernel has removed the interface pair after a stop, so that the next start
# need not wait for it.
pair_is_gone() { eventually test ! -e "/sys/class/net/veth-$1"; }

# unprepared: removes everything that broken tools left, so that the next start is the host's first
# one again.
unprepared() {
    iptables -F
    iptables -t nat -F
    umount /run/kiv
    rm -r /run/kiv
}

# files_of NAME: lists the account's files in the runtime directory.
files_of() { find /run/kiv -mindepth 1 -name "${1//[*?[\\]/\\&}@*" 2>/dev/null || true; }
