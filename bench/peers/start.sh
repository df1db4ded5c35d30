#!/usr/bin/env bash
# start.sh NAME UID HOME HOST-END CONTAINER-END PATHS: creates the same container like an
# administrator's script, with `ip netns add` for the network. The layer has only the account's
# home, and there are no checks.
set -euo pipefail
name=$1 uid=$2 home=$3 outer=$4 inner=$5 paths=$6
files=/run/kiv/$name

inside() {
    local root=/mnt/temp-root what path
    ip addr add "$inner/30" dev veth0
    ip link set veth0 up
    ip link set lo up
    ip route add default via "$outer"
    echo 1 >/proc/sys/net/ipv4/conf/veth0/route_localnet
    echo "$uid $uid" >/proc/sys/net/ipv4/ping_group_range
    iptables -t nat -A POSTROUTING -s 127.0.0.1 -d "$outer" -o veth0 -j MASQUERADE
    iptables -t nat -A OUTPUT -s 127.0.0.1 -p tcp -d 127.0.0.1 --dport 3306 -j DNAT --to "$outer:3306"
    umount -l /run/kiv
    mount -t tmpfs tmpfs /mnt
    mkdir -p /mnt/root "/mnt/kiv$home" "$root" /mnt/empty-dir
    mount --bind / /mnt/root
    mount -t overlay -o lowerdir=/mnt/kiv:/mnt/root overlay "$root"
    mount --bind "$home" "$root$home"
    mount --bind "$home/tmp" "$root/tmp"
    mount -t devpts -o newinstance,max=64 devpts "$root/dev/pts"
    mount -t proc -o ro,hidepid=2 proc "$root/proc"
    mount -t tmpfs -o nosuid,nodev,noexec,relatime,size=1m,mode=755 tmpfs "$root/run"
    mkdir "$root/run/mysqld"
    while read -r what path; do
        if [ "$what" = bind ]; then
            mount --bind "$path" "$root$path"
        else
            mount --bind /mnt/empty-dir "$root$path"
        fi
    done <"$paths"
    cd "$root"
    pivot_root . .
    umount -l .
}

if [ -n "${KIV_INSIDE:-}" ]; then
    inside
    exit
fi
touch "$files@ipc" "$files@mnt"
ip netns add "$name"
ip link add "veth-$name" mtu 1400 type veth peer name veth0 mtu 1400 netns "$name"
echo 1 >"/proc/sys/net/ipv4/conf/veth-$name/route_localnet"
iptables -t nat -I PREROUTING -i "veth-$name" -p tcp -d "$outer" --dport 3306 -j DNAT --to-destination 127.0.0.1:3306
iptables -A INPUT -i "veth-$name" -d 100.64.0.0/10 -j REJECT
ip addr add "$outer/30" dev "veth-$name"
ip link set "veth-$name" up
KIV_INSIDE=1 nsenter --net="/run/netns/$name" \
    unshare --ipc="$files@ipc" --mount="$files@mnt" --propagation slave "$0" "$@"
