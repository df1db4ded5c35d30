#!/usr/bin/env bats
# The examples of the manual pages are what the programs print.
load helpers

# display PAGE N|TEXT: prints the page's Nth literal display, or its first one that contains the text, as a reader sees it.
display() {
    sed -e "s/\\\\(aq/'/g" -e 's/\\-/-/g' -e 's/\\(if/∞/g' -e 's/\\e/\\/g' "$project/docs/man/$1" | awk -v wanted="$2" '
        /^\.Ed/ && !found && (wanted ~ /^[0-9]+$/ ? count == wanted : index(text, wanted)) { printf "%s", text; found = 1 }
        { text = text $0 "\n" }
        /^\.Bd -literal/ { count++; text = "" }'
}

# holds PAGE N: each command of the display, after "# ", prints the lines below it.
holds() {
    local shown line
    shown=$(display "$1" "$2" | sed "s/uid=1001(alice) gid=1001(alice) groups=1001/${ids:-none}/")
    [ -n "$shown" ]
    same "display $2 of $1" "$shown" "$(sed -n 's/^# //p' <<<"$shown" | while read -r line; do
        printf '# %s\n' "$line"
        bash -c "$line" 2>&1 </dev/null
    done)"
}
export project
export -f display holds

@test "the examples of kivctl(8)" {
    in_host <<'EOF'
holds kivctl.8 1
account bob 100.64.0.8/30
# shellcheck disable=SC2034 # for holds
ids="uid=$(id -u alice)(alice) gid=$(id -g alice)(alice) groups=$(id -g alice)"
holds kivctl.8 2
holds kivctl.8 3
# the display shows a host with controllers, which not every machine can offer
account carol 100.64.0.12/30
slices=/sys/fs/cgroup/user.slice
mkdir -p "$slices"
mount -t tmpfs slices "$slices"
# figures NAME PROCESSES LIMIT BYTES LIMIT
figures() {
    local slice
    slice=$slices/user-$(id -u "$1").slice
    mkdir "$slice"
    echo "$2" >"$slice/pids.current"
    echo "$3" >"$slice/pids.max"
    echo "$4" >"$slice/memory.current"
    echo "$5" >"$slice/memory.high"
}
figures alice 14 100 104857600 1073741824
figures bob 2 max 6295552 max
holds kivctl.8 4
EOF
}

@test "a stop that does not complete, as kivctl(8) shows it" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
kivctl exec alice <<<'trap "" TERM; sleep 60 & exec sleep 60' &
eventually pgrep -u alice -f 'sleep 60' >/dev/null
first=$(kivctl stop alice 2>&1)
pids=$(sed -n 's/.*processes: //p' <<<"$first")
# shellcheck disable=SC2086 # two numbers
kill -KILL ${pids//,/}
gone() { ! pgrep -u alice >/dev/null; }
eventually gone
second=$(kivctl stop alice 2>&1)
shown=$(display kivctl.8 5 | sed '/^# /d')
same "both stops" "$(sed 's/168, 170/'"$pids"'/' <<<"$shown")" "$first"$'\n'"$second"
EOF
}

@test "the rules of kiv(7), and the firewall that it loads by hand" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
# lines that are too long for a page continue indented
same rules "$(display kiv.7 iptables-save | sed '1d' | sed -e ':join' -e '$!N' -e 's/\n    / /' -e 'tjoin' -e 'P;D')" \
    "$(iptables-save --table filter | grep veth-alice; iptables-save --table nat | grep veth-alice)"
cp "$project/dist/nftables/kivctl.nft" /etc/tarnwell
bash -ec "$(display kiv.7 'nft -f' | sed 's/^# //')"
# duplicate address detection takes a second or two
settled() { [ -z "$(ip -6 addr show tentative && enter alice ip -6 addr show tentative)" ]; }
eventually settled
link_local=$(ip -6 -oneline addr show dev veth-alice | grep -o 'fe80[^/]*')
socat TCP6-LISTEN:8080,fork,reuseaddr SYSTEM:'echo reached' &
eventually grep -q ':1F90 .* 0A ' /proc/net/tcp6
reach() { enter alice socat -T 2 - "TCP6:[$link_local%veth0]:8080,connect-timeout=2" </dev/null 2>/dev/null; }
refused reach
nft delete table inet kivctl
same "what it would reach" reached "$(reach)"
EOF
}

@test "kiv(7) shows the shipped limits, and the repair after a user was removed first" {
    in_host <<'EOF'
same limits "$(display kiv.7 TasksMax)" "$(grep -E '^[A-Za-z]+=[^n]' "$project/dist/limits.conf")"
account alice 100.64.0.4/30
kivctl start alice >/dev/null
userdel -r alice 2>/dev/null
bash -ec "$(display kiv.7 useradd | sed 's/^# //')" >/dev/null
same "left" "" "$(ls /run/kiv; getent passwd alice || true)"
EOF
}

@test "the program of libkiv(3)" {
    in_host <<'EOF'
account alice 100.64.0.4/30
display libkiv.3 1 >/tmp/id.c
cc -Wall -Wextra -Werror -I "$project/libkiv" -o /tmp/id /tmp/id.c -L "$(dirname "$KIVCTL")/../lib" -lkiv
LD_LIBRARY_PATH=$(dirname "$KIVCTL")/../lib
export LD_LIBRARY_PATH
capture /tmp/id alice
same "status without a container" 1 "$status"
same "what it says" "/run/kiv/alice@net: container is not running, start it with: kivctl start alice" "$err"
kivctl start alice >/dev/null
capture /tmp/id alice
same status 0 "$status"
same "what it runs" "uid=$(id -u alice)(alice) gid=$(id -g alice)(alice) groups=$(id -g alice)(alice)" "$out"
EOF
}
