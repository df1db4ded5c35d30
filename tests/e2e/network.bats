#!/usr/bin/env bats
# The link between a container and the host: the set-up of both ends, and the traffic that passes.
load helpers

@test "an account reaches the outside with the host's address" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "the host's database is reached on the container's own loopback address" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
answer=$(enter alice bash -c 'cat </dev/tcp/127.0.0.1/3306')
[[ $answer == *database* ]]
[[ $answer == *100.64.0.6* ]]
EOF
}

@test "an account with a dot in its name reaches the database" {
    in_host <<'EOF'
useradd --badname --create-home --shell /bin/bash a.b
mkdir ~a.b/tmp
echo "a.b net=100.64.0.4/30" >"$registry"
kivctl start a.b
same "routing of loopback addresses" 1 "$(cat /proc/sys/net/ipv4/conf/veth-a.b/route_localnet)"
[[ $(enter a.b bash -c 'cat </dev/tcp/127.0.0.1/3306') == *database* ]]
EOF
}

@test "a real database answers the account on its loopback address" {
    if ! command -v mariadbd mysqld >/dev/null; then
        # without a server package the simulated host must report that instead of starting another
        # server
        run --separate-stderr env KIV_HOST_DATABASE=real "$project/tests/host/simulated-host" -- true
        [ "$status" -ne 0 ]
        [ "${#stderr_lines[@]}" -eq 1 ]
        return
    fi
    KIV_HOST_DATABASE=real in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
# the server's greeting contains its version in plain text
greeting=$(enter alice timeout 5 bash -c 'exec 3<>/dev/tcp/127.0.0.1/3306; head -c 20 <&3 | tr -dc "[:print:]"')
[[ $greeting == *MariaDB* || $greeting =~ [0-9]+\.[0-9]+\.[0-9]+ ]]
EOF
}

@test "nothing else on the host's private addresses is reached" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a
socat TCP-LISTEN:8080,fork,reuseaddr SYSTEM:'echo host' &
until [ "$(cat </dev/tcp/127.0.0.1/8080)" = host ] 2>/dev/null; do sleep 0.01; done
for address in 100.64.0.5 100.64.0.9; do
    capture enter alice timeout 2 bash -c "cat </dev/tcp/$address/8080"
    [[ $err == *"Connection refused"* ]]
done
# the other account's database address is its own
capture enter alice timeout 2 bash -c "cat </dev/tcp/100.64.0.9/3306"
[[ $err == *"Connection refused"* ]]
EOF
}

@test "forwarding between containers is left to the firewall" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a
enter bob socat TCP-LISTEN:8080,fork,reuseaddr SYSTEM:'echo bob' &
until [ "$(enter bob bash -c 'cat </dev/tcp/127.0.0.1/8080')" = bob ] 2>/dev/null; do sleep 0.01; done
same "answer of bob's own server" bob "$(enter alice bash -c 'cat </dev/tcp/100.64.0.10/8080')"
EOF
}

@test "the host has the container's rules and no others" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
same "filter table" "-P INPUT ACCEPT
-P FORWARD ACCEPT
-P OUTPUT ACCEPT
-A INPUT -d 100.64.0.0/10 -i veth-alice -j REJECT --reject-with icmp-port-unreachable" "$(iptables -S)"
same "nat table" "-P PREROUTING ACCEPT
-P INPUT ACCEPT
-P OUTPUT ACCEPT
-P POSTROUTING ACCEPT
-A PREROUTING -d 100.64.0.5/32 -i veth-alice -p tcp -m tcp --dport 3306 -j DNAT --to-destination 127.0.0.1:3306
-A POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE" "$(iptables -t nat -S)"
EOF
}

@test "the newest container's database rule is first and its reject rule last" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a
same "order of database rules" $'veth-bob\nveth-alice' \
    "$(iptables -t nat -S PREROUTING | grep -o 'veth-[a-z]*')"
same "order of reject rules" $'veth-alice\nveth-bob' "$(iptables -S INPUT | grep -o 'veth-[a-z]*')"
EOF
}

@test "the rules in the container redirect its loopback database address to the host's end" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
inside() { nsenter --net=/run/kiv/alice@net "$@"; }
same "nat table" "-P PREROUTING ACCEPT
-P INPUT ACCEPT
-P OUTPUT ACCEPT
-P POSTROUTING ACCEPT
-A OUTPUT -s 127.0.0.1/32 -d 127.0.0.1/32 -p tcp -m tcp --dport 3306 -j DNAT --to-destination 100.64.0.5:3306
-A POSTROUTING -s 127.0.0.1/32 -d 100.64.0.5/32 -o veth0 -j MASQUERADE" "$(inside iptables -t nat -S)"
same "filter table" "-P INPUT ACCEPT
-P FORWARD ACCEPT
-P OUTPUT ACCEPT" "$(inside iptables -S)"
EOF
}

@test "both ends are up with their addresses and the uplink's MTU" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
inside() { nsenter --net=/run/kiv/alice@net "$@"; }
brief() { "$@" ip -4 -o addr show | awk '{ print $2, $4 }'; }
mtu() { "$@" ip -o link show | sed -E 's/^[0-9]+: ([^:@]+)[@:].* mtu ([0-9]+) .*/\1 \2/'; }
same "addresses on the host" "lo 127.0.0.1/8
uplink 192.0.2.2/24
veth-alice 100.64.0.5/30" "$(brief env)"
same "addresses in the container" $'lo 127.0.0.1/8\nveth0 100.64.0.6/30' "$(brief inside)"
same "MTU of the host's end" "veth-alice 1400" "$(mtu env | grep veth)"
same "interfaces in the container" $'lo 65536\nveth0 1400' "$(mtu inside)"
ip -o link show veth-alice | grep >/dev/null '[<,]UP[,>]'
inside ip -o link show veth0 | grep >/dev/null '[<,]UP[,>]'
same "routes in the container" "default via 100.64.0.5 dev veth0
100.64.0.4/30 dev veth0 proto kernel scope link src 100.64.0.6" "$(inside ip route | sed 's/ *$//')"
EOF
}

@test "the prefix length comes from the account's network" {
    in_host <<'EOF'
account alice 100.64.7.77/24
kivctl start alice
same "address of the host's end" 100.64.7.1/24 \
    "$(ip -4 -o addr show veth-alice | awk '{ print $4 }')"
same "address in the container" 100.64.7.2/24 \
    "$(nsenter --net=/run/kiv/alice@net ip -4 -o addr show veth0 | awk '{ print $4 }')"
EOF
}

@test "loopback addresses may cross the link and the account's group may ping" {
    in_host <<'EOF'
account alice 100.64.0.4/30
groupadd --gid 4242 hosting
usermod --gid hosting alice
kivctl start alice
inside() { nsenter --net=/run/kiv/alice@net "$@"; }
same "route_localnet on the host" 1 "$(sysctl -n net.ipv4.conf.veth-alice.route_localnet)"
same "route_localnet in the container" 1 "$(inside sysctl -n net.ipv4.conf.veth0.route_localnet)"
same "ping group range" "4242 4242" "$(inside sysctl -n net.ipv4.ping_group_range | tr '\t' ' ')"
same "route_localnet of the uplink" 0 "$(sysctl -n net.ipv4.conf.uplink.route_localnet)"
EOF
}

@test "a user name of 10 characters makes a peer name that is too long, which start survives" {
    in_host <<'EOF'
account tencharact 100.64.0.4/30
capture kivctl start tencharact
same status 0 "$status"
[[ $err == *"exit code"*": ip link add veth-tencharact type veth peer name vpeer-tencharact mtu 1400"* ]]
same "live namespaces" $'net\nipc\nmnt' "$(mounted tencharact)"
refused test -e /sys/class/net/veth-tencharact
enter tencharact test -w /home/tencharact
EOF
}

@test "a user name of 11 characters gets interfaces with a hashed short name" {
    in_host <<'EOF'
account elevencharx 100.64.0.4/30
kivctl start elevencharx
test -e "/sys/class/net/veth-iDbKxq-F9"
same "address seen outside" 192.0.2.2 "$(enter elevencharx bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "a left-over host interface makes start fail before anything is created" {
    in_host <<'EOF'
account alice 100.64.0.4/30
ip link add veth-alice type veth peer name other-end
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: veth-alice: already exists!" "$err"
same "live namespaces" "" "$(mounted alice)"
EOF
}

@test "a left-over peer interface makes start fail under the host interface's name" {
    in_host <<'EOF'
account alice 100.64.0.4/30
ip link add other-end type veth peer name vpeer-alice
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: veth-alice: already exists!" "$err"
same "live namespaces" "" "$(mounted alice)"
EOF
}

@test "a container starts when a left-over interface disappears within a second" {
    in_host <<'EOF'
account alice 100.64.0.4/30
ip link add veth-alice type veth peer name other-end
(sleep 0.5; ip link del veth-alice) &
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "only a new network namespace is checked for left-over interfaces" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
umount /run/kiv/alice@mnt
capture kivctl start alice
same status 0 "$status"
# the new mount namespace has copies of the files of the two others
same stderr "umount(kiv) failed: Device or resource busy" "$err"
EOF
}

@test "a failing command on the host's side is reported and the next ones follow" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record sysctl 'case $* in *veth-*) exit 3 ;; esac; exec $real "$@"'
capture kivctl start alice
same status 0 "$status"
same stderr "exit code 3: sysctl -q -w net.ipv4.conf.veth-alice.route_localnet=1" "$err"
iptables -t nat -S | grep >/dev/null veth-alice
ip -o link show veth-alice | grep >/dev/null '[<,]UP[,>]'
EOF
}

@test "a network that is too small or malformed is refused before anything is created" {
    in_host <<'EOF'
account alice
echo "alice net=100.64.0.4/31" >"$registry"
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: network 100.64.0.4/31 has no address number 2" "$err"
echo "alice net=100.64.0.4/32" >"$registry"
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: network 100.64.0.4/32 has no address number 1" "$err"
refused test -e /run/kiv
EOF
}
