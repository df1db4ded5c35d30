#!/usr/bin/env bats
# Numbers of mount namespaces depend on the processor on which they were made, from Linux 6.18 on: whichever
# processor the host's namespace and the program's child come from, the container's namespace can be pinned.
load helpers

processors() {
    local list range processor
    list=$(taskset --cpu-list --pid $$)
    list=${list##*: }
    for range in ${list//,/ }; do
        seq "${range%-*}" "${range#*-}"
    done | head -4 # pairs grow with the square
}

@test "a container starts whatever processors the host and the program run on" {
    all=$(processors | tr '\n' ' ')
    export all
    for host in $all; do
        taskset --cpu-list --pid "$host" "$BASHPID" >/dev/null
        in_host <<'EOF'
account alice 100.64.0.4/30
for processor in $all; do
    capture taskset --cpu-list "$processor" kivctl start alice
    same "status on processor $processor" 0 "$status"
    same "stderr on processor $processor" "" "$err"
    same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    kivctl stop alice
done
EOF
    done
}

@test "the program's children may use the processors that it was given" {
    export processor
    processor=$(processors | tail -1)
    in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'taskset --cpu-list --pid $$ >>/tmp/affinity; exec $real "$@"'
taskset --cpu-list "$processor" kivctl start alice
same "affinities of the host's tools" "$processor" "$(sed 's/.*: //' /tmp/affinity | sort -u)"
EOF
}
