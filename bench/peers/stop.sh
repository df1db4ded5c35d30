#!/usr/bin/env bash
# stop.sh NAME HOST-END: removes what start.sh has created, when no process is left in it.
set -euo pipefail
name=$1 outer=$2
if [ -n "$(ip netns pids "$name")" ]; then
    echo "$name: processes left" >&2
    exit 1
fi
umount "/run/kiv/$name@ipc" "/run/kiv/$name@mnt"
rm "/run/kiv/$name@ipc" "/run/kiv/$name@mnt"
ip netns delete "$name"
iptables -D INPUT -i "veth-$name" -d 100.64.0.0/10 -j REJECT
iptables -t nat -D PREROUTING -i "veth-$name" -p tcp -d "$outer" --dport 3306 -j DNAT --to-destination 127.0.0.1:3306
