#!/usr/bin/env bats
# kiv-check --host: each kind of finding about a host and its containers, with the problem itself.
load helpers
load with_residents
load cgroups

# Findings that have separate tests or depend on the machine's kernel: IPv6 and the controllers.
elsewhere='^(/proc/net/if_inet6|/sys/fs/cgroup/cgroup.controllers):'

# host: prints the findings, sorted.
host() { { kiv-check --host -q || true; } | { grep -vE "$elsewhere" || true; } | sort; }

# finds FINDING…: exactly these are found.
finds() { same findings "$(printf '%s\n' "$@" | sort)" "$(host)"; }

# two: starts containers for alice and bob; there is no finding.
two() {
    account alice 100.64.0.4/30
    account bob 100.64.0.8/30
    kivctl start -a >/dev/null 2>&1
    finds ""
}
export elsewhere firewall=$project/dist/nftables
export -f host finds two

@test "homes and their tmp directories" {
    in_host <<'EOS'
two
rm -r /home/alice/tmp
chown root /home/bob/tmp
finds "/home/alice: warning: the home of 'alice' has no directory tmp (No such file or directory): /tmp in the container cannot be written, create it" \
    "/home/bob: warning: the directory tmp in the home of 'bob' belongs to another user: the account cannot write to /tmp, change its owner"
ln -s /etc /home/alice/tmp
mv /home/bob /home/robert
finds "/home/alice: warning: the home of 'alice' has no directory tmp (Too many levels of symbolic links): /tmp in the container cannot be written, create it" \
    "/home/bob: warning: the home of 'bob' cannot be bound (No such file or directory): the container has no home, create it"
EOS
}

@test "partial, interrupted and orphaned containers, and marks that are left" {
    in_host <<'EOS'
two
account carol 100.64.0.12/30
account dora 100.64.0.16/30
kivctl start -a >/dev/null 2>&1
umount /run/kiv/alice@ipc
python3 -c '
import os
for name in "bob", "bob@pair", "@host":
    os.setxattr("/run/kiv", f"trusted.kiv.unfinished.{name}", b"mnt pinned")'
uid=$(id -u carol)
userdel carol
sed -i '/dora/d' "$registry"
finds "$registry:3: error: there is no user 'carol': delete the line, or add the user" \
    "/run/kiv/alice@mnt: warning: the container of 'alice' lacks namespaces: run kivctl start alice" \
    "/run/kiv/bob@mnt: warning: a start or stop of 'bob' was interrupted, and nobody can enter the container: run kivctl start bob" \
    "/run/kiv: warning: a start of 'bob' has left its interface pair on the host: stop and start the container" \
    "/run/kiv: warning: a start was interrupted before it had added the source-NAT rule: start any container" \
    "/run/kiv/carol@mnt: warning: there is no user 'carol' for this container: run useradd --no-create-home carol, kivctl stop carol, userdel carol" \
    "/run/kiv/dora@mnt: warning: 'dora' has a container and is not in the registry: add the line and run kivctl stop dora"
# repaired as advised
useradd --uid "$uid" --no-create-home --home-dir /home/carol carol
echo 'dora net=100.64.0.16/30' >>"$registry"
kivctl start alice >/dev/null 2>&1
kivctl stop -a >/dev/null 2>&1
kivctl start -a >/dev/null 2>&1
finds ""
EOS
}

@test "containers that are older than the configuration or the packages, until they are refreshed" {
    in_host <<'EOS'
two
sleep 0.1
echo hide >"$configuration"
finds "/run/kiv/alice@mnt: warning: the container of 'alice' is older than the configuration: run kiv-refresh alice" \
    "/run/kiv/bob@mnt: warning: the container of 'bob' is older than the configuration: run kiv-refresh bob"
kiv-refresh -a >/dev/null 2>&1
finds ""
sleep 0.1
touch /var/lib/dpkg/status
kiv-refresh bob >/dev/null 2>&1
finds "/run/kiv/alice@mnt: warning: the container of 'alice' is older than the host's packages: run kiv-refresh alice"
EOS
}

@test "forwarding, source NAT and containers' rules after a flush" {
    in_host <<'EOS'
two
echo 0 >/proc/sys/net/ipv4/ip_forward
iptables -F INPUT
iptables -t nat -F
finds "/proc/sys/net/ipv4/ip_forward: warning: forwarding is off: containers have no way out, set net.ipv4.ip_forward=1" \
    "iptables: warning: the source-NAT rule is missing, and no firewall table is loaded: containers have no way out, run iptables -t nat -A POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE" \
    "iptables: warning: the container of 'alice' lacks its rule in INPUT: the host's ports are open to it, stop and start it" \
    "iptables: warning: the container of 'alice' lacks its rule in PREROUTING: it cannot reach the database, stop and start it" \
    "iptables: warning: the container of 'bob' lacks its rule in INPUT: the host's ports are open to it, stop and start it" \
    "iptables: warning: the container of 'bob' lacks its rule in PREROUTING: it cannot reach the database, stop and start it"
echo 1 >/proc/sys/net/ipv4/ip_forward
# as told
iptables -t nat -A POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
kivctl stop -a >/dev/null 2>&1
kivctl start -a >/dev/null 2>&1
finds ""
EOS
}

@test "rules and interfaces that are left over" {
    in_host <<'EOS'
two
kivctl stop bob >/dev/null
iptables -A INPUT -d 100.64.0.0/10 -i veth-bob -j REJECT
iptables -t nat -A PREROUTING -d 100.64.0.9/32 -i veth-bob -p tcp -m tcp --dport 3306 -j DNAT --to-destination 127.0.0.1:3306
ip link add veth-gone type veth peer name vpeer-gone
finds "/sys/class/net/veth-gone: warning: the interface is left behind: run ip link delete veth-gone" \
    "/sys/class/net/vpeer-gone: warning: the interface is left behind: run ip link delete vpeer-gone" \
    "iptables: warning: a rule is left behind for veth-bob: run iptables -D INPUT -d 100.64.0.0/10 -i veth-bob -j REJECT --reject-with icmp-port-unreachable" \
    "iptables: warning: a rule is left behind for veth-bob: run iptables -t nat -D PREROUTING -d 100.64.0.9/32 -i veth-bob -p tcp -m tcp --dport 3306 -j DNAT --to-destination 127.0.0.1:3306"
# as told
host | sed -n 's/.*: run //p' | bash 2>/dev/null || true
finds ""
EOS
}

@test "the shipped firewall replaces the containers' own rules, as a table and for iptables" {
    in_host <<'EOS'
two
note="nft: note: the containers' firewall is not loaded: they reach each other and the host's loopback addresses unless other rules refuse that, enable kivctl-firewall.service"
(kiv-check --host || true) | grep -qxF "$note"
iptables -F
iptables -t nat -F
nft -f "$firewall/kivctl.nft"
finds ""
nft delete table inet kivctl
iptables-restore --noflush "$firewall/kivctl.iptables"
ip6tables-restore --noflush "$firewall/kivctl.iptables"
finds ""
same "IPv6 and firewall" "" "$( (kiv-check --host || true) | grep -E '^/proc/net/if_inet6|^nft' || true)"
for chain in PREROUTING POSTROUTING; do
    iptables -t nat -F "$chain"
    host | grep -q "^iptables: warning: the source-NAT rule is missing"
    iptables-restore --noflush "$firewall/kivctl.iptables"
    finds ""
done
EOS
}

@test "the host's ports by IPv6" {
    in_host <<'EOS'
two
(kiv-check --host -q || true) | grep -qxF "/proc/net/if_inet6: warning: containers reach the host's ports by IPv6: load the firewall table, or run ip6tables -I INPUT -i veth-+ -j REJECT"
refuses_ipv6() { same "IPv6" "" "$( (kiv-check --host -q || true) | grep if_inet6 || true)"; }
ip6tables -I INPUT -i veth-+ -j REJECT # as told
refuses_ipv6
ip6tables -F INPUT
nft -f "$firewall/kivctl.nft" # or so
refuses_ipv6
EOS
}

@test "processes outside containers, user managers, old views and replaced files" {
    with_residents <<'EOS'
two
setpriv --reuid alice --regid alice --init-groups sleep 300 </dev/null &
outside=$!
eventually grep -q sleep "/proc/$outside/comm"
finds "/proc: warning: processes of 'alice' run outside of its container: $outside; start them with kiv-run"
kill "$outside"
wait "$outside" || true
manager=/sys/fs/cgroup/user.slice/user-$(id -u bob).slice/user@$(id -u bob).service
mkdir -p "$manager"
setpriv --reuid bob --regid bob --init-groups sleep 300 </dev/null &
outside=$!
echo "$outside" >"$manager/cgroup.procs"
eventually grep -q sleep "/proc/$outside/comm"
finds "/proc: warning: processes of 'bob' run outside of its container: $outside; start them with kiv-run" \
    "$manager: warning: a user manager of 'bob' runs outside of the container: run loginctl disable-linger, and systemctl mask --now user@$(id -u bob)"
kill "$outside"
wait "$outside" || true
nsenter --net=/run/kiv/bob@net setpriv --reuid alice --regid alice --init-groups sleep 300 </dev/null &
outside=$!
eventually grep -q sleep "/proc/$outside/comm"
finds "/proc: warning: processes of 'alice' run outside of its container: $outside; start them with kiv-run"
kill "$outside"
wait "$outside" || true
setpriv --reuid alice --regid alice --init-groups /usr/bin/python3 -c '
import ctypes, threading, time
threading.Thread(target=time.sleep, args=(300,)).start()
ctypes.CDLL(None).pthread_exit(None)' </dev/null &
outside=$! # its first thread ends
first_has_ended() { grep -q python "/proc/$outside/comm" && ! stat -L "/proc/$outside/ns/net" >/dev/null 2>&1; }
eventually first_has_ended
finds "/proc: warning: processes of 'alice' run outside of its container: $outside; start them with kiv-run"
kill "$outside"
wait "$outside" || true
cp /usr/bin/sleep /usr/bin/waiting
cp /usr/bin/sleep /usr/bin/resting
resident alice net,ipc,mnt waiting 300
replaced=$pid
resident bob net,ipc,mnt resting 300
finds ""
cp /usr/bin/sleep /usr/bin/new
mv /usr/bin/new /usr/bin/waiting # as dpkg does
finds "/proc: warning: processes of 'alice' run with files that were replaced: $replaced; restart them"
kiv-refresh bob >/dev/null 2>&1
finds "/proc: warning: processes of 'alice' run with files that were replaced: $replaced; restart them" \
    "/proc: warning: processes of 'bob' run in an old view: $pid; restart them"
kill "$replaced" "$pid"
eventually finds ""
EOS
}

@test "controllers that are missing, and limits that are not in force" {
    in_host <<'EOS'
two
stand_in_cgroups
elsewhere='^/proc/net/if_inet6:'
finds "/sys/fs/cgroup/cgroup.controllers: error: no cgroup v2 is mounted here: no account can be entered"
echo cpu pids >/sys/fs/cgroup/cgroup.controllers
finds "/sys/fs/cgroup/cgroup.controllers: warning: the controller memory is missing: accounts have no limit of this kind, see cgroups(7)"
echo cpu memory pids >/sys/fs/cgroup/cgroup.controllers
slice=$(slice alice)
mkdir -p "$slice"
echo 14 >"$slice/pids.current"
echo max | tee "$slice/pids.max" "$slice/memory.max" >"$slice/memory.high"
drop_ins=/etc/systemd/system/user-$(id -u alice).slice.d
mkdir -p "$drop_ins" /etc/systemd/system/user-.slice.d
printf '[Slice]\nTasksMax=200\nMemoryHigh=512M\n' >"$drop_ins/limits.conf"
printf '[Slice]\nTasksMax=33%%\nMemoryMax=1G\n' >/etc/systemd/system/user-.slice.d/all.conf
finds "$slice/memory.current: warning: 'alice' is not counted: no limit of this kind can hold, enable the controller for user.slice" \
    "$drop_ins/limits.conf:2: warning: the limit is not in force for 'alice': pids.max is max, run systemctl reload-or-restart kivctl-limits and see kiv(7)" \
    "$drop_ins/limits.conf:3: warning: the limit is not in force for 'alice': memory.high is max, run systemctl reload-or-restart kivctl-limits and see kiv(7)" \
    "/etc/systemd/system/user-.slice.d/all.conf:3: warning: the limit is not in force for 'alice': memory.max is max, run systemctl reload-or-restart kivctl-limits and see kiv(7)"
echo 1 >"$slice/memory.current"
echo 200 >"$slice/pids.max"
echo $((512 << 20)) >"$slice/memory.high"
echo $((1 << 30)) >"$slice/memory.max"
finds ""
# drop-ins of both folders are read in the order of their names
printf '[Slice]\nTasksMax=400\n' >/etc/systemd/system/user-.slice.d/zz.conf
finds "/etc/systemd/system/user-.slice.d/zz.conf:2: warning: the limit is not in force for 'alice': pids.max is 200, run systemctl reload-or-restart kivctl-limits and see kiv(7)"
rm /etc/systemd/system/user-.slice.d/zz.conf
for control in /run/systemd/system.control /etc/systemd/system.control; do # of systemctl set-property
    control=$control/user-$(id -u alice).slice.d
    mkdir -p "$control"
    printf '[Slice]\nTasksMax=300\nMemoryHigh=512M\n' >"$control/limits.conf"
    finds "$control/limits.conf:2: warning: the limit is not in force for 'alice': pids.max is 200, run systemctl reload-or-restart kivctl-limits and see kiv(7)"
done
EOS
}
