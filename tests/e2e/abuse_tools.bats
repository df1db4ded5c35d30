#!/usr/bin/env bats
# Host tools that fail, die or print without end.
load helpers
load with_abuse

# badly WAY: each tool in turn behaves in that way during a first start of the host, and then
# normally again.
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

# reported WAY LINE RESULT: a tool that ends at once in that way is named after LINE each time, and
# the result of the rule check is RESULT. First on an unprepared host, then on a prepared one.
reported() {
    export WAY=$1 LINE=$2 RESULT=$3
    with_abuse <<'EOF'
account alice 100.64.0.4/30
check="iptables -t nat -C POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE"
first_start() { # TOOL
    capture timeout 20 kivctl start alice
    case $1 in
        ip) wanted="$LINE: ip -4 route show default 0.0.0.0/0"$'\nkivctl: Error while querying default route' ;;
        iptables) wanted="kivctl: Error while checking for default MASQUERADE rule ($RESULT): "
            [[ $LINE != signal* ]] || wanted="$LINE: $check"$'\n'"$wanted" ;;
        sysctl) wanted="$LINE: sysctl -q -w net.ipv4.conf.veth-alice.route_localnet=1
$LINE: sysctl -q -w net.ipv4.conf.veth0.route_localnet=1" ;;
    esac
    same "stderr of the first start, without $1" "$wanted" "$err"
    if [ "$1" = sysctl ]; then has_run 0; else has_run 71; fi
}
later_start() { # TOOL COUNT: the tool is run so often for the host, and once inside, where the first failure ends the set-up
    capture timeout 20 kivctl start alice
    has_run 0
    same "lines about $1" "$2" "$(grep -c "^$LINE: $1 " <<<"$err")"
    same "other lines without $1" "" "$(grep -vE "^$LINE: $1 |sysctl" <<<"$err" || true)"
    same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    same "who is inside" alice "$(kivctl exec alice <<<'id -un')"
}
original=$PATH
for tool in "ip 5" "iptables 3" "sysctl 2"; do
    name=${tool% *}
    for host in first later; do
        record "$name" "$WAY"
        # shellcheck disable=SC2086 # a tool and its words
        "${host}_start" $tool
        capture timeout 20 kivctl stop alice
        has_run 0
        removals=0
        [ "$host $name" != "later iptables" ] || removals=2
        same "lines of stop" "$removals" "$(grep -c "^$LINE: iptables .*-D " <<<"$err" || true)"
        PATH=$original
        rm "/tmp/recorded/$name"
        recovers alice
    done
    unprepared
done
EOF
}

@test "tools that exit with 4" { reported 'exit 4' "exit code 4" 4; }

@test "tools that exit with 255" { reported 'exit 255' "exit code 255" 255; }

@test "tools that die by a signal" {
    reported 'kill -KILL $$' "signal 9" -9
    reported 'ulimit -c 0; kill -SEGV $$' "signal 11" -11
}

@test "tools that print a megabyte" {
    badly 'head -c 1000000 /dev/zero | tr "\0" x; exit 0'
    badly 'head -c 1000000 /dev/zero | tr "\0" x; exit 4'
    badly 'head -c 1000000 /dev/zero | tr "\0" x >&2; exit 2'
}

@test "tools that print unexpected text" {
    badly 'echo " dev "; exit 0'
    badly 'yes dev | head -c 1000000'
    badly 'echo default dev ../../../etc via x; exit 1'
}

@test "tools that close their output and run on for a while" {
    badly 'exec >&- 2>&-; sleep 0.2; exit 1'
}
