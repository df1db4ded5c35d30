#!/usr/bin/env bats
# From Linux 6.18 on the number of a mount namespace depends on the processor that created it. The
# container's namespace can be pinned for every pair of processors of the host's namespace and the
# program's child.
load helpers

processors() {
    local list range
    list=$(taskset --cpu-list --pid $$)
    list=${list##*: }
    for range in ${list//,/ }; do
        seq "${range%-*}" "${range#*-}"
    done | head -4 # the number of pairs grows with the square
}

# on_each_pair: runs the script from standard input on a host per processor; the script itself loops
# over $all.
on_each_pair() {
    local script host
    script=$(cat)
    all=$(processors | tr '\n' ' ')
    export all
    for host in $all; do
        taskset --cpu-list --pid "$host" "$BASHPID" >/dev/null
        in_host <<<"$script"
    done
}

@test "a container starts on any processors of the host and the program, and its tools keep the program's affinity" {
    on_each_pair <<'EOF'
account alice 100.64.0.4/30
record ip 'taskset --cpu-list --pid $$ | sed "s/.*: //" >>/tmp/affinity; exec $real "$@"'
for processor in $all; do
    rm -f /tmp/affinity
    capture taskset --cpu-list "$processor" kivctl start alice
    same "status on processor $processor" 0 "$status"
    same "stderr on processor $processor" "" "$err"
    same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    same "affinities of the host's tools" "$processor" "$(sort -u /tmp/affinity)"
    kivctl stop alice
    eventually test ! -e /sys/class/net/veth-alice
done
EOF
}

@test "a namespace with too low a number is replaced by another, and the affinity is restored" {
    on_each_pair >"$BATS_TEST_TMPDIR/said" <<'EOF'
account alice 100.64.0.4/30
for processor in $all; do
    capture taskset --cpu-list "$processor" \
        strace -f -b execve -o /tmp/trace -e trace=unshare,sched_setaffinity kivctl start alice
    same "status on processor $processor" 0 "$status"
    child=$(grep -F 'unshare(CLONE_NEWNS|CLONE_NEWIPC|CLONE_NEWNET) = 0' /tmp/trace | cut -d ' ' -f 1)
    changes=$(grep -E "^$child +sched_setaffinity" /tmp/trace || true)
    if [ -n "$changes" ]; then
        grep -qE "^$child +unshare\(CLONE_NEWNS\) += 0" /tmp/trace
        [[ $(tail -n 1 <<<"$changes") =~ ,\ \[$processor\]\)\ *=\ 0$ ]]
        echo "made another on processor $processor"
    fi
    refused grep -qvE "^$child +|unshare|SIG|exited" /tmp/trace
    kivctl stop alice
    eventually test ! -e /sys/class/net/veth-alice
done
EOF
    cat "$BATS_TEST_TMPDIR/said"
    # of two processors one has the lower numbers
    if [ "$(processors | wc -l)" -gt 1 ] && printf '%s\n' 6.18 "$(uname -r)" | sort --check=silent --version-sort; then
        grep "made another" "$BATS_TEST_TMPDIR/said"
    fi
}

@test "if the kernel does not report the numbers, no namespace is replaced and no affinity changed" {
    on_each_pair <<'EOF'
account alice 100.64.0.4/30
for processor in $all; do
    capture taskset --cpu-list "$processor" \
        strace -f -b execve -o /tmp/trace -e trace=ioctl,unshare,sched_setaffinity -e inject=ioctl:error=ENOTTY kivctl start alice
    echo "processor $processor: $status: $err"
    grep -q 'ioctl(.*ENOTTY.*INJECTED' /tmp/trace
    refused grep -q sched_setaffinity /tmp/trace
    same "namespaces that were made" 1 "$(grep -c 'unshare(' /tmp/trace)"
    # its number may be high enough all the same
    if [ "$status" != 0 ]; then
        same status 71 "$status"
        [[ $err =~ /ns/mnt:\ mount\(/run/kiv/alice@mnt\)\ failed:\ Invalid\ argument$ ]]
    fi
    kivctl stop alice
    eventually test ! -e /sys/class/net/veth-alice
done
EOF
}

@test "all processors are tried while the number is too low" {
    in_host <<'EOF'
account alice 100.64.0.4/30
# the first number that the child reads is the host's; each of its own reads as 1
capture strace -f -b execve -o /tmp/trace -e trace=ioctl,unshare,sched_setaffinity \
    -e inject=ioctl:poke_exit=@arg3=0100000000000000:when=2+ kivctl start alice
child=$(grep -F 'unshare(CLONE_NEWNS|CLONE_NEWIPC|CLONE_NEWNET) = 0' /tmp/trace | cut -d ' ' -f 1)
tried=$(sed -nE "s/^$child +sched_setaffinity\(0, [0-9]+, \[([0-9 ]+)\]\) += .*/\1/p" /tmp/trace)
same "processors that were tried, and the one it was on" \
    "$(seq 0 $(($(getconf _NPROCESSORS_CONF) - 1)); taskset --cpu-list --pid $$ | sed 's/.*: //')" "$tried"
EOF
}
