# For scripts that abuse a host, on top of on_host.bash and residents.bash.

# rounds FULL SHORT: how often to try: FULL when the caller's environment has a KIVCTL_ABUSE_FULL, else SHORT.
rounds() {
    if [ -n "${KIVCTL_ABUSE_FULL:-}" ]; then echo "$1"; else echo "$2"; fi
}

# A host's programs share one processor; what is to race with them must not.
all_processors=0-$(($(nproc --all) - 1))

# exchanging NAME PATH OTHER: while the host lives, or until `exchanger` is killed, the account exchanges the two
# names as fast as it can.
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

# has_run STATUS: the last captured command ended with that status, neither by a signal nor by a time limit.
has_run() { same "exit status" "$1" "$status"; }

# recovers NAME: after whatever has been done, stop, start, exec, stop bring the account's container to a clean
# running and a clean stopped state.
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

# pair_is_gone NAME: what a stop leaves to the kernel is done, so that the next start need not wait for it.
pair_is_gone() { eventually test ! -e "/sys/class/net/veth-$1"; }

# unprepared: what broken tools could not remove is gone, and the next start is the host's first again.
unprepared() {
    iptables -F
    iptables -t nat -F
    umount /run/kiv
    rm -r /run/kiv
}

# files_of NAME: what stands in the runtime directory under the account's name.
files_of() { find /run/kiv -mindepth 1 -name "${1//[*?[\\]/\\&}@*" 2>/dev/null || true; }
