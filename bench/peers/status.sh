#!/usr/bin/env bash
# status.sh: prints the table like an administrator's script, without starting a program per
# account.
set -euo pipefail

figure() { { read -r "$1" <"$2"; } 2>/dev/null || printf -v "$1" %s -; }

declare -A uids
while IFS=: read -r name _ uid _; do
    uids[$name]=$uid
done < <(getent passwd)
while read -r name _; do
    active=no
    [ -e "/run/kiv/$name@mnt" ] && active=yes
    slice=/sys/fs/cgroup/user.slice/user-${uids[$name]}.slice
    figure processes "$slice/pids.current"
    figure most "$slice/pids.max"
    figure memory "$slice/memory.current"
    figure high "$slice/memory.high"
    # shellcheck disable=SC2154 # assigned by figure
    printf '| %-10s | %-6s | %9s %7s | %12s %7s |\n' "$name" "$active" "$processes" "$most" "$memory" "$high"
done </etc/tarnwell/kiv.users
