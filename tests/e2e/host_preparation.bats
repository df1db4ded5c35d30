#!/usr/bin/env bats
# The parts that all containers of a host share and the first start creates: the runtime directory
# and source NAT.
load helpers

@test "the runtime directory is created with mode 0700, mounted on itself and private" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
same "runtime directory" "directory 700 0:0" "$(stat -c '%F %a %u:%g' /run/kiv)"
same "its mount" "/kiv /run/kiv -" "$(awk '$5 == "/run/kiv" { print $4, $5, $7 }' /proc/self/mountinfo)"
EOF
}

@test "another mode of the runtime directory is corrected with a line" {
    in_host <<'EOF'
account alice 100.64.0.4/30
for mode in 0755 4700 1700 0600; do
    mkdir -p /run/kiv
    chmod $mode /run/kiv
    capture kivctl start alice
    same status 0 "$status"
    same "first line of stderr" "adjusting file mode for /run/kiv" "$(head -1 <<<"$err")"
    same "mode" 700 "$(stat -c %a /run/kiv)"
done
EOF
}

@test "the first start calls the host tools in this order and with these arguments" {
    in_host <<'EOF'
account alice 100.64.0.4/30
usermod --gid www-data alice
record ip
record iptables
record sysctl
kivctl start alice
same "pid of the child" 1 "$(grep -cE '^ip link set vpeer-alice netns [0-9]+$' /tmp/calls)"
same "calls" "ip -4 route show default 0.0.0.0/0
iptables -t nat -C POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
iptables -t nat -A POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
ip link add veth-alice type veth peer name vpeer-alice mtu 1400
ip link set vpeer-alice netns PID
sysctl -q -w net.ipv4.conf.veth-alice.route_localnet=1
iptables -t nat -I PREROUTING -i veth-alice -p tcp -d 100.64.0.5 --dport 3306 -j DNAT --to-destination 127.0.0.1:3306
iptables -A INPUT -i veth-alice -d 100.64.0.0/10 -j REJECT
ip addr add 100.64.0.5/30 dev veth-alice
ip link set veth-alice up mtu 1400
ip link set dev vpeer-alice name veth0
ip addr add 100.64.0.6/30 dev veth0
ip link set veth0 up
ip link set lo up
ip route add default via 100.64.0.5
sysctl -q -w net.ipv4.conf.veth0.route_localnet=1
sysctl -q -w net.ipv4.ping_group_range=33 33
iptables -t nat -A POSTROUTING -s 127.0.0.1 -d 100.64.0.5 -o veth0 -j MASQUERADE
iptables -t nat -A OUTPUT -s 127.0.0.1 -p tcp -d 127.0.0.1 --dport 3306 -j DNAT --to 100.64.0.5:3306" \
    "$(sed -E 's/(netns) [0-9]+/\1 PID/' /tmp/calls)"
EOF
}

@test "a prepared host is not asked for its route and rules again" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start alice
record ip
record iptables
kivctl start bob
refused grep -E 'route show|POSTROUTING -s 100' /tmp/calls
EOF
}

@test "a runtime directory that is already a private mount is left unchanged" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -m 0700 /run/kiv
mount --bind /run/kiv /run/kiv
mount --make-private /run/kiv
record ip
record iptables
kivctl start alice
refused grep -E 'route show|POSTROUTING -s 100' /tmp/calls
EOF
}

@test "a runtime directory that exists without a mount gets one, with source NAT" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -m 0700 /run/kiv
kivctl start alice
same "mounts" 1 "$(grep -c ' /run/kiv ' /proc/self/mountinfo)"
iptables -t nat -C POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
EOF
}

@test "a directory created on a private /run gets source NAT although its mount is already private" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mount --make-private /run
kivctl start alice
iptables -t nat -C POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
EOF
}

@test "source NAT that exists is not added again" {
    in_host <<'EOF'
account alice 100.64.0.4/30
iptables -t nat -A POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
kivctl start alice
same "rules" 1 "$(iptables -t nat -S POSTROUTING | grep -c MASQUERADE)"
EOF
}

@test "the type of the file at the runtime directory's path is not checked" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -m 0700 /dev/null /run/kiv
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv/alice@net: Not a directory" "$err"
EOF
}

# failing_tool TOOL SHELL-TEXT TEXT: the first start with that tool ends with that error.
failing_tool() {
    export TOOL=$1 BODY=$2 TEXT=$3
    in_host <<'EOF'
account alice 100.64.0.4/30
record "$TOOL" "$BODY"
capture kivctl start alice
same status 71 "$status"
same stderr "$TEXT" "$err"
same "live namespaces" "" "$(mounted alice)"
EOF
}

@test "a failing route query ends the start" {
    failing_tool ip 'case $* in *default*) exit 2 ;; esac; exec $real "$@"' \
        "exit code 2: ip -4 route show default 0.0.0.0/0
kivctl: Error while querying default route"
}

@test "a host without a default route cannot be prepared" {
    failing_tool ip 'case $* in *default*) exit 0 ;; esac; exec $real "$@"' \
        "kivctl: Cannot get default route"
}

@test "a default route without a device cannot be used" {
    failing_tool ip 'case $* in *default*) echo default via 192.0.2.1; exit ;; esac; exec $real "$@"' \
        "kivctl: Cannot get 'dev' from default route"
    failing_tool ip 'case $* in *default*) printf "default via 192.0.2.1 dev"; exit ;; esac; exec $real "$@"' \
        "kivctl: Cannot get 'dev' from default route"
}

@test "a route listing that ends right after the device yields the device" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'case $* in *default*) printf "default via 192.0.2.1 dev uplink"; exit ;; esac; exec $real "$@"'
kivctl start alice
iptables -t nat -C POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
EOF
}

@test "an unclear answer to the rule check ends the start with the tool's own text" {
    failing_tool iptables 'case $* in *-C*) echo "no nat table" >&2; exit 2 ;; esac; exec $real "$@"' \
        "kivctl: Error while checking for default MASQUERADE rule (2): no nat table"
    failing_tool iptables 'case $* in *-C*) kill -KILL $$ ;; esac; exec $real "$@"' \
        "signal 9: iptables -t nat -C POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
kivctl: Error while checking for default MASQUERADE rule (-9): "
}

@test "a rule that cannot be added ends the start" {
    failing_tool iptables 'case $* in *POSTROUTING*-o\ uplink*) exit 1 ;; esac; exec $real "$@"' \
        "exit code 1: iptables -t nat -A POSTROUTING -s 100.64.0.0/10 -o uplink -j MASQUERADE
kivctl: Error while adding MASQURADE rule for default interface uplink"
}

@test "a missing tool is an error of the child, never an exception of the parent" {
    in_host <<'EOF'
account alice 100.64.0.4/30
tools=$(dirname "$(command -v kivctl)")
capture env PATH="$tools" "$tools/kivctl" start alice
same status 71 "$status"
same stderr "ERROR during execvp: No such file or directory
exit code 255: ip -4 route show default 0.0.0.0/0
$tools/kivctl: Error while querying default route" "$err"
EOF
}

@test "without a default route in the kernel's table the link gets an MTU of 1500 and the reason is reported" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
account bob 100.64.0.8/30
ip route del default
capture kivctl start bob
same status 0 "$status"
same "first line of stderr" "Could not detect default network interface (no default route configured?)" \
    "$(head -1 <<<"$err")"
ip -o link show veth-bob | grep >/dev/null 'mtu 1500'
EOF
}

# failing_call CALL:ERROR[:when=N] TEXT [PREPARATION]
failing_call() {
    export INJECT=$1 TEXT=$2 PREPARATION=${3:-true}
    in_host <<'EOF'
account alice 100.64.0.4/30
eval "$PREPARATION"
capture strace -o /dev/null -e inject="$INJECT" kivctl start alice
same status 71 "$status"
same stderr "$TEXT" "$err"
same "live namespaces" "" "$(mounted alice)"
EOF
}

@test "each failing call on the runtime directory ends the start with its text" {
    failing_call mkdir:error=ENOSPC "kivctl: /run/kiv: mkdir() failed: No space left on device"
    failing_call chmod:error=EROFS "adjusting file mode for /run/kiv
kivctl: /run/kiv: chmod(0700) failed: Read-only file system" "mkdir -m 0750 /run/kiv"
    failing_call mount:error=EPERM "kivctl: /run/kiv: mount() failed: Operation not permitted"
    failing_call mount:error=EPERM:when=2 \
        "kivctl: /run/kiv: cannot make private: Operation not permitted"
}

@test "a runtime directory that cannot be examined ends the start with its text" {
    in_host <<'EOF'
account alice 100.64.0.4/30
umount --lazy /run
mv /run /run-before
touch /run
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv: Not a directory" "$err"
EOF
}

@test "if the lock cannot be opened, nothing is started" {
    in_host <<'EOF'
account alice 100.64.0.4/30
for failure in "fcntl:error=ENOLCK|No locks available" "openat:error=EMFILE|Too many open files"; do
    if [[ $failure = openat* ]]; then
        injected "${failure%|*}" -P /run/kiv/.lock kivctl start alice
    else
        injected "${failure%|*}" kivctl start alice
    fi
    same "status with $failure" 71 "$status"
    same "stderr with $failure" "kivctl: /run/kiv: cannot lock: ${failure#*|}" "$err"
    same "live namespaces" "" "$(mounted alice)"
done
EOF
}

@test "a dangling link in place of the runtime directory is refused" {
    in_host <<'EOF'
account alice 100.64.0.4/30
ln -s /nowhere /run/kiv
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv: mkdir() failed: File exists" "$err"
EOF
}

@test "a link to a directory in place of the runtime directory is refused" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -d -m 0700 /srv/elsewhere
ln -s /srv/elsewhere /run/kiv
before=$(cat /proc/self/mountinfo)
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv: mount() failed: Too many levels of symbolic links" "$err"
same mounts "$before" "$(cat /proc/self/mountinfo)"
EOF
}

@test "a directory that another process has just created is used" {
    in_host <<'EOF'
account alice 100.64.0.4/30
strace -o /dev/null -e inject=mkdir:delay_enter=300000 kivctl start alice &
sleep 0.15 # by now kivctl has checked, and is paused before its mkdir
mkdir -m 0700 /run/kiv
wait $!
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "several starts at once have the same result as one after the other" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
for _ in 1 2 3; do
    for name in alice bob alice -a; do
        kivctl start $name >>/tmp/out 2>>/tmp/err &
        pids+=($!)
    done
    for pid in "${pids[@]}"; do
        wait "$pid"
    done
    pids=()
    same "mounts of the directory" 1 "$(grep -c ' /run/kiv ' /proc/self/mountinfo)"
    same "source NAT rules" 1 "$(iptables -t nat -S POSTROUTING | grep -c MASQUERADE)"
    same "database rules" 2 "$(iptables -t nat -S PREROUTING | grep -c DNAT)"
    same "namespace mounts" 6 "$(grep -cE ' /run/kiv/(alice|bob)@' /proc/self/mountinfo)"
done
# a start beside another container reports the busy directory
same "other lines on stderr" "" "$(grep -vx "umount(kiv) failed: Device or resource busy" /tmp/err || true)"
enter bob test -w /home/bob
EOF
}

@test "line ends in the output of a host tool are kept" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record iptables 'printf "first\nsec\033ond\n" >&2; exit 9'
fails 71 kivctl start alice 2>/tmp/err >/tmp/out
same stderr "kivctl: Error while checking for default MASQUERADE rule (9): first
sec\x1bond

." "$(cat /tmp/err; echo .)"
EOF
}
