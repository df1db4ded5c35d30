# For scripts about who reaches whom; needs on_host.bash. alice and bob have containers, the host
# and the server outside have more addresses, and a server on port 7000 of every place prints where
# it is.
# shellcheck disable=SC2154 # from on_host.bash

export rules
rules=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../../dist/nftables")

outside() { nsenter --target "$internet" --net "$@"; }

# from PLACE COMMAND…: runs the command in an account's container as the account, on the host, or
# outside.
from() {
    case $1 in
        host) "${@:2}" ;;
        outside) outside "${@:2}" ;;
        *) enter "$@" ;;
    esac
}

# serve PLACE PORT…: starts a server there; arriving UDP datagrams are logged in /tmp/PLACE.log.
serve() {
    from "$1" firewall_calls serve "$@" >>"/tmp/$1.log" 2>&1 &
    eventually grep -qx ready "/tmp/$1.log"
}

# give_addresses NAME NETWORK: gives a container IPv6 addresses, like an administrator of a host
# with IPv6.
give_addresses() {
    ip address add "$2::1/64" dev "veth-$1" nodad
    nsenter --net="/run/kiv/$1@net" ip -batch - <<END
address add $2::2/64 dev veth0 nodad
route add default via $2::1
END
}

# link_local NAME: prints the link-local address of the host's end of the account's pair.
link_local() { ip -6 -oneline address show dev "veth-$1" scope link | sed 's/.*inet6 \([^/]*\).*/\1/'; }

settled() { ! ip -6 address show | grep -q tentative; }

make_addresses() {
    ip link add inner type veth peer name inner-peer
    ip -batch - <<'END'
link set inner up
link set inner-peer up
address add 10.9.0.1/24 dev inner
address add 169.254.9.1/24 dev inner
address add fd00:9::1/64 dev inner nodad
address add 2001:db8::2/64 dev uplink nodad
route add 169.254.169.254 via 192.0.2.1
END
    outside ip -batch - <<'END'
address add 2001:db8::1/64 dev uplink nodad
address add 10.7.0.1/32 dev lo
address add 169.254.169.254/32 dev lo
route add 100.64.0.0/10 via 192.0.2.2
route add fd00::/16 via 2001:db8::2
END
    give_addresses alice fd00:a
    give_addresses bob fd00:b
    sysctl -q -w net.ipv6.conf.all.forwarding=1
    # many calls at once: every refused caller must get its answer
    sysctl -q -w net.ipv4.icmp_ratelimit=0 net.ipv6.icmp.ratelimit=0
    eventually settled
}

install "$(dirname "${BASH_SOURCE[0]}")/firewall_calls" /usr/local/bin
internet=$(pgrep --oldest --full '^socat TCP-LISTEN:80,')
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a 2>/dev/null >&2

# everybody: starts servers and sets addresses for calls between all places.
everybody() {
    make_addresses
    serve host 53 7000
    serve outside 7000
    serve alice 7000
    serve bob 7000
}

# calls PLACE <<<"PROTOCOL TARGET PORT SOURCE WANTED…": makes the call; the result must be WANTED.
calls() {
    local wanted
    wanted=$(cat)
    same "calls from $1" "$wanted" "$(from "$1" firewall_calls call "$1" <<<"$wanted")"
}
