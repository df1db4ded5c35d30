#!/usr/bin/env bats
# The shipped firewall: who reaches whom with it and without it, in addition to the rules of kivctl
# and of other software.
load helpers

# on_firewall_host <<'EOF' … EOF: like in_host, with the functions of tests/e2e/firewall_host.bash,
# too.
on_firewall_host() {
    local script
    script=$(cat)
    in_host <<<"source '$BATS_TEST_DIRNAME/firewall_host.bash'; $script"
}

@test "who reaches whom, with the firewall and without, before and after a flush, and with the rules for iptables" {
    on_firewall_host <<'EOF'
everybody
# Calls: FROM, PROTOCOL, TARGET, PORT, SOURCE. Then the results: without the firewall, with it,
# after a flush of all rules, with the firewall again, with the one for iptables. The server on port
# 80 prints the caller's address.
cat >/tmp/matrix <<END
alice both 192.0.2.2                 7000 -         host    refused host    refused refused
alice both 10.9.0.1                  7000 -         host    refused host    refused refused
alice both 169.254.9.1               7000 -         host    refused host    refused refused
alice both 100.64.0.5                7000 -         refused refused host    refused refused
alice both 100.64.0.9                7000 -         refused refused host    refused refused
alice both 127.0.0.1%veth0           7000 -         silence refused silence refused silence
alice both 127.0.0.2%veth0           7000 -         host    refused host    refused refused
alice both 2001:db8::2               7000 -         host    refused host    refused refused
alice both fd00:9::1                 7000 -         host    refused host    refused refused
alice both fd00:a::1                 7000 -         host    refused host    refused refused
alice both $(link_local alice)%veth0 7000 -         host    refused host    refused refused
alice udp  192.0.2.255               7000 -         silence refused silence refused silence
alice udp  255.255.255.255%veth0     7000 -         silence silence silence silence silence
alice udp  224.0.0.1%veth0           7000 -         silence silence silence silence silence
alice udp  192.0.2.2%veth0           53   127.0.0.9 host    silence host    silence silence
alice both 192.0.2.2                 53   -         host    host    host    host    host
alice both 2001:db8::2               53   -         host    host    host    host    host
alice both 127.0.0.2%veth0           53   -         host    refused host    refused refused
alice tcp  127.0.0.1                 3306 -         small   small   refused small   small
alice tcp  100.64.0.5                3306 -         small   small   refused small   small
alice tcp  100.64.0.9                3306 -         refused refused refused refused refused
alice both 100.64.0.10               7000 -         bob     refused bob     refused refused
alice both fd00:b::2                 7000 -         bob     refused bob     refused refused
alice both 198.51.100.1              7000 -         outside outside outside outside outside
alice tcp  198.51.100.1                80 -         192.0.2.2 192.0.2.2 100.64.0.6 192.0.2.2 192.0.2.2
alice both 10.7.0.1                  7000 -         outside outside outside outside outside
alice both 2001:db8::1               7000 -         outside outside outside outside outside
alice both 169.254.169.254           7000 -         outside refused outside refused refused
bob   both 100.64.0.6                7000 -         alice   refused alice   refused refused
bob   both 192.0.2.2                 7000 -         host    refused host    refused refused
bob   tcp  198.51.100.1                80 -         192.0.2.2 192.0.2.2 100.64.0.10 192.0.2.2 192.0.2.2
host  both 100.64.0.6                7000 192.0.2.2 alice   alice   alice   alice   alice
host  both 100.64.0.6                7000 -         silence silence alice   alice   alice
host  both fd00:a::2                 7000 -         alice   alice   alice   alice   alice
host  both 198.51.100.1              7000 -         outside outside outside outside outside
host  both 127.0.0.2                 7000 -         host    host    host    host    host
outside both 100.64.0.6              7000 -         alice   refused alice   refused refused
outside both fd00:a::2               7000 -         alice   refused alice   refused refused
outside both 192.0.2.2               7000 -         host    host    host    host    host
outside both 2001:db8::2             7000 -         host    host    host    host    host
END

# what_comes COLUMN: makes all calls at once and compares the results.
what_comes() {
    local place pid running=()
    : | tee /tmp/host.log >/tmp/bob.log
    for place in alice bob host outside; do
        calls "$place" < <(awk -v place="$place" -v column="$((5 + $1))" '$1 == place {
            if ($2 != "udp") print "tcp", $3, $4, $5, $column
            if ($2 != "tcp") print "udp", $3, $4, $5, $column }' /tmp/matrix) &
        running+=($!)
    done
    for pid in "${running[@]}"; do
        wait "$pid"
    done
}

arrived() { grep -x "alice .*" /tmp/host.log | sort || true; }
allowed="alice 192.0.2.2 53
alice 2001:db8::2 53"

what_comes 1
# also datagrams whose answers get lost
for address in 127.0.0.1%veth0 192.0.2.255 255.255.255.255%veth0 224.0.0.1%veth0; do
    grep -qx "alice $address 7000" /tmp/host.log
done
firewall
what_comes 2
same "datagrams for the host" "$allowed" "$(arrived)"
same "datagrams for bob" "" "$(cat /tmp/bob.log)"
nft flush ruleset
what_comes 3
firewall
what_comes 4
same "datagrams for the host" "$allowed" "$(arrived)"
nft flush ruleset
iptables-restore --noflush "$rules/kivctl.iptables"
ip6tables-restore --noflush "$rules/kivctl.iptables"
what_comes 5
same "datagrams for the host" "$allowed" "$(arrived)"
EOF
}

@test "the commands in the file's header open hosts with a policy of drop, and with Docker, and nothing else does" {
    on_firewall_host <<'EOF'
make_addresses
serve host 53 7000
serve outside 7000
serve bob 7000
# header PATTERN: prints the matching lines of the file's comment as commands
header() { sed -n "/^#   $1/s/^# *//p" "$rules/kivctl.nft"; }

# reached OUTSIDE DATABASE NAMES: which of them alice reaches
reached() {
    calls alice <<END
tcp 198.51.100.1 7000 - $1
udp 198.51.100.1 7000 - $1
tcp 127.0.0.1 3306 - $2
udp 192.0.2.2 53 - $3
tcp 192.0.2.2 53 - $3
tcp 192.0.2.2 7000 - refused
udp 192.0.2.2 7000 - refused
tcp 127.0.0.2%veth0 3306 - refused
tcp 100.64.0.10 7000 - refused
END
}
# rules that such hosts have anyway
policies() {
    iptables -P "$1" DROP
    iptables -A "$1" -m conntrack --ctstate ESTABLISHED,RELATED -j ACCEPT
}
firewall

policies INPUT
policies FORWARD
reached silence silence silence
eval "$(header 'iptables -I [IF]')"
reached outside small host
iptables -F
iptables -P INPUT ACCEPT

# as Docker creates it, with a server that is published only on the host's loopback address
for chain in DOCKER-USER DOCKER-FORWARD DOCKER; do iptables -N "$chain"; done
iptables -F FORWARD
iptables -A FORWARD -j DOCKER-USER
iptables -A FORWARD -j DOCKER-FORWARD
iptables -A DOCKER-FORWARD -o inner -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT
iptables -A DOCKER-FORWARD -o inner -j DOCKER
iptables -A DOCKER-FORWARD -i inner -j ACCEPT
iptables -A DOCKER -d 10.9.0.7 ! -i inner -o inner -p tcp --dport 80 -j ACCEPT
iptables -t nat -N DOCKER
iptables -t nat -I PREROUTING -m addrtype --dst-type LOCAL -j DOCKER
iptables -t nat -A DOCKER -d 127.0.0.2 ! -i inner -p tcp --dport 8080 -j DNAT --to-destination 10.9.0.7:80
ip neighbour add 10.9.0.7 lladdr 02:00:00:00:00:07 dev inner
reached silence small host
eval "$(header 'iptables -I DOCKER-USER')"
reached outside small host
calls alice <<<"tcp 127.0.0.2%veth0 8080 - refused"
# without the firewall alice's packets reach Docker's interface
sent() { cat /sys/class/net/inner/statistics/tx_packets; }
before=$(sent)
nft delete table inet kivctl
calls alice <<<"tcp 127.0.0.2%veth0 8080 - silence"
(($(sent) > before))

nft flush ruleset
firewall
nft -f - <<END
table inet filter {
    chain input {
        type filter hook input priority filter; policy drop
        ct state established,related accept
        $(header input: | sed 's/^input: *//')
    }
    chain forward {
        type filter hook forward priority filter; policy drop
        ct state established,related accept
    }
}
END
reached silence small host
header forward: | sed 's/^forward:/add rule inet filter forward/' | nft -f -
reached outside small host
EOF
}

@test "an account has at most 4096 connections, which does not affect the others" {
    on_firewall_host <<'EOF'
serve outside 7000
count() { cat /proc/sys/net/netfilter/nf_conntrack_count; }
firewall
before=$(count)
enter alice firewall_calls flood 198.51.100.1 5000
same "connections of alice" 4096 $(($(count) - before))
calls alice <<<$'tcp 198.51.100.1 7000 - refused\ntcp 127.0.0.1 3306 - refused'
calls bob <<<$'tcp 198.51.100.1 7000 - outside\ntcp 127.0.0.1 3306 - small'
nft delete table inet kivctl
before=$(count)
enter bob firewall_calls flood 198.51.100.1 5000
(($(count) - before >= 4900))
EOF
}

@test "a foreign rule that drops the whole range blocks the database, and the manual's command repairs it" {
    on_firewall_host <<'EOF'
firewall
serve host 53 7000
serve outside 7000
iptables -I INPUT -s 100.64.0.0/10 ! -i vpn0 -j DROP
calls alice <<<$'tcp 127.0.0.1 3306 - silence\nudp 192.0.2.2 53 - silence\ntcp 198.51.100.1 7000 - outside'
advice=$(sed 's/\\//g' "$rules/../../docs/man/kiv.7" | sed -n 's/^# \(iptables -I INPUT -i veth-+ -j ACCEPT\)$/\1/p')
$advice
calls alice <<<$'tcp 127.0.0.1 3306 - small\nudp 192.0.2.2 53 - host
tcp 192.0.2.2 7000 - refused\ntcp 127.0.0.2%veth0 7000 - refused\ntcp 100.64.0.5 7000 - refused'
EOF
}

@test "loading it again and again lets nothing through and interrupts nothing" {
    export KIV_HOST_DATABASE=none # a faster one
    on_firewall_host <<'EOF'
serve bob 7000
serve host 3306
serve outside 7000
firewall
inside() {
    for _ in {1..60}; do
        echo "tcp 100.64.0.10 7000 - refused"
        echo "tcp 198.51.100.1 7000 - outside"
        echo "tcp 127.0.0.1 3306 - host"
    done
}
calls alice < <(inside) &
calling=$!
loads=0
while kill -0 "$calling" 2>/dev/null; do
    firewall
    loads=$((loads + 1))
done
wait "$calling"
((loads >= 5))
same "tables" "table inet kivctl" "$(nft list tables inet)"
EOF
}

@test "a server in a container can be reached through a unix socket in the home and a port that the host forwards" {
    on_firewall_host <<'EOF'
firewall
serve alice 7000
enter alice socat UNIX-LISTEN:/home/alice/web,fork SYSTEM:'echo alice' &
eventually test -S /home/alice/web
same "by the socket" alice "$(socat -u UNIX-CONNECT:/home/alice/web -)"
iptables -t nat -A PREROUTING -p tcp --dport 8080 -j DNAT --to-destination 100.64.0.6:7000
calls outside <<<"tcp 192.0.2.2 8080 - alice"
calls bob <<<$'tcp 192.0.2.2 8080 - refused\ntcp 203.0.113.7 8080 - refused'
# kiv(7) shows these two: for one address, and for a host whose own policy is to drop
iptables -t nat -A PREROUTING -d 192.0.2.2 -p tcp --dport 8081 -j DNAT --to-destination 100.64.0.6:7000
iptables -A FORWARD -i veth-+ ! -o veth-+ -j ACCEPT
iptables -P FORWARD DROP
calls outside <<<"tcp 192.0.2.2 8081 - silence"
iptables -I FORWARD -d 100.64.0.6 -p tcp --dport 7000 -j ACCEPT
calls outside <<<"tcp 192.0.2.2 8081 - alice"
calls bob <<<"tcp 192.0.2.2 8081 - refused"
EOF
}

@test "systemd loads it before the containers and again whenever nftables.service has loaded the host's rules" {
    on_firewall_host <<'EOF'
kivctl stop -a >/dev/null
# shellcheck source=tests/e2e/manager.bash
source "$rules/../../tests/e2e/manager.bash"
install_units
cp "$rules/kivctl.nft" /etc/tarnwell
install -D -m 0644 "$rules/../systemd/nftables-kivctl.conf" /etc/systemd/system/nftables.service.d/kivctl.conf
printf '%s\n' '#!/usr/sbin/nft -f' 'flush ruleset' 'table inet mine { }' >/etc/nftables.conf
start_manager

tables() { nft list tables inet | sed 's/.* //' | sort | xargs; }
has() { [ "$(tables)" = "$1" ]; }
systemctl --quiet enable kivctl-firewall
systemctl start kivctl
same "once the containers are started" kivctl "$(tables)"
loaded=$(systemctl show --property ExecMainExitTimestampMonotonic --value kivctl-firewall)
((0 < loaded && loaded <= $(systemctl show --property ExecMainStartTimestampMonotonic --value kivctl)))
test -e /sys/class/net/veth-alice
for verb in start reload restart restart reload; do
    systemctl "$verb" nftables
    eventually has "kivctl mine"
done
systemctl stop nftables
same "once all is flushed" "" "$(tables)"
systemctl start nftables
eventually has "kivctl mine"
sed -i 's/^define host_ports = .*/define host_ports = { 4711 }/' /etc/tarnwell/kivctl.nft
systemctl reload kivctl-firewall
nft list table inet kivctl | grep >/dev/null 4711
systemctl stop kivctl-firewall
same "once stopped" mine "$(tables)"
systemctl reload nftables
same "a unit that was stopped" inactive "$(systemctl is-active kivctl-firewall || true)"
same "tables" mine "$(tables)"
EOF
}
