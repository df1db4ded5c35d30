#!/usr/bin/env bats
# Host tools that fail, die or talk without end.
load helpers
load with_abuse

# badly WAY: each of the tools behaves in that way for a first start of the host, and well again afterwards.
badly() {
    export WAY=$1
    with_abuse <<'EOF'
account alice 100.64.0.4/30
original=$PATH
for tool in ip iptables sysctl; do
    record "$tool" "$WAY"
    capture timeout 20 kivctl start alice
    echo "$tool: $status, ${#err} bytes: ${err:0:150}"
    [[ $status = 0 || $status = 71 ]]
    capture timeout 20 kivctl stop alice
    has_run 0
    PATH=$original
    rm "/tmp/recorded/$tool"
    recovers alice
    unprepared
done
EOF
}

@test "tools that exit with 4" { badly 'exit 4'; }

@test "tools that exit with 255" { badly 'exit 255'; }

@test "tools that die by a signal" {
    badly 'kill -KILL $$'
    badly 'ulimit -c 0; kill -SEGV $$'
}

@test "tools that print a megabyte" {
    badly 'head -c 1000000 /dev/zero | tr "\0" x; exit 0'
    badly 'head -c 1000000 /dev/zero | tr "\0" x; exit 4'
    badly 'head -c 1000000 /dev/zero | tr "\0" x >&2; exit 2'
}

@test "tools that answer with something else" {
    badly 'echo " dev "; exit 0'
    badly 'yes dev | head -c 1000000'
    badly 'echo default dev ../../../etc via x; exit 1'
}

@test "tools that close their output and go on for a while" {
    badly 'exec >&- 2>&-; sleep 0.2; exit 1'
}
