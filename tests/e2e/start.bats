#!/usr/bin/env bats
# What start prints, what it creates on the host, and how it treats existing parts.
load helpers

@test "starting all accounts prints one line each and nothing else" {
    in_host <<'EOF'
account alice 100.64.0.4/30
capture kivctl start -a
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "the second container reports the busy runtime directory and is as complete as the first" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
capture kivctl start -a
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30
starting container: bob, network:100.64.0.8/30" "$out"
same stderr "umount(kiv) failed: Device or resource busy" "$err"
same "bob's live namespaces" $'net\nipc\nmnt' "$(mounted bob)"
enter bob true
enter_as_root bob bash -c '! grep /run/kiv /proc/self/mountinfo'
EOF
}

@test "debug mode prints every step on standard output" {
    in_host <<'EOF'
account alice 100.64.0.4/30
capture kivctl -d start alice
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30
Detected interface for default route: uplink
Added default MASQUERADE rule for network 10.64.0.0/10 on device uplink
bind-mounting /run/kiv/alice@net
bind-mounting /run/kiv/alice@ipc
bind-mounting /run/kiv/alice@mnt
Creating file: /mnt/kiv/etc/group
Creating file: /mnt/kiv/etc/passwd
tmpdir: /home/alice/tmp
OK." "$out"
same stderr "" "$err"
EOF
}

@test "a second start prints its line and changes nothing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
eventually grep -qx up /sys/class/net/veth-alice/operstate # the carrier may come a moment later
state() { grep /run/kiv /proc/self/mountinfo; iptables-save | grep -v '^#'; ip -o link; ls -la /run/kiv; }
before=$(state)
record ip
record iptables
record sysctl
capture kivctl start alice
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
refused test -e /tmp/calls
same "state of the host" "$before" "$(state)"
EOF
}

@test "a container without its mount namespace gets a new one and keeps the rest" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
inode() { stat -Lc %i "/run/kiv/alice@$1"; }
net=$(inode net) ipc=$(inode ipc) mnt=$(inode mnt)
# shellcheck disable=SC2034 # kept open
exec {keptAlive}</run/kiv/alice@mnt # else the kernel may give its number to the next one
umount --lazy /run/kiv/alice@mnt
rules=$(iptables-save | grep -v '^#')
capture kivctl start alice
same status 0 "$status"
same "network namespace" "$net" "$(inode net)"
same "ipc namespace" "$ipc" "$(inode ipc)"
[ "$mnt" != "$(inode mnt)" ]
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "packet rules" "$rules" "$(iptables-save | grep -v '^#')"
enter alice test -w /home/alice
refused enter alice test -w /etc
EOF
}

@test "a container without its network namespace gets a new one and keeps its root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
inode() { stat -Lc %i "/run/kiv/alice@$1"; }
mnt=$(inode mnt)
umount /run/kiv/alice@net
kivctl start alice
same "mount namespace" "$mnt" "$(inode mnt)"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "namespace files are empty regular files of mode 0600 below their mounts" {
    in_host <<'EOF'
umask 0777
account alice 100.64.0.4/30
kivctl start alice
umount /run/kiv/alice@net
same "file below the mount" "regular empty file 600 0:0" "$(stat -c '%F %a %u:%g' /run/kiv/alice@net)"
same "runtime directory" "directory 700 0:0" "$(stat -c '%F %a %u:%g' /run/kiv)"
EOF
}

@test "a namespace file with another mount is reported and mounted over" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
umount /run/kiv/alice@net
mount --bind /run/kiv/alice@mnt /run/kiv/alice@ipc
umount /run/kiv/alice@ipc
mount --bind /proc/self/ns/uts /run/kiv/alice@net
root=$(stat -Lc 'uts:[%i]' /proc/self/ns/uts)
capture kivctl start alice
same status 0 "$status"
same stderr "Unexpected mount source for /run/kiv/alice@net: $root" "$err"
EOF
}

@test "an account that is not in the registry is refused" {
    in_host <<'EOF'
account alice 100.64.0.4/30
useradd carol
capture kivctl start carol
same status 71 "$status"
same stdout "" "$out"
same stderr "kivctl: KIV not configured for requested user" "$err"
refused test -e /run/kiv
EOF
}

@test "an empty name does not mean all accounts" {
    in_host <<'EOF'
account alice 100.64.0.4/30
capture kivctl start ""
same status 71 "$status"
same stdout "" "$out"
same stderr "kivctl: KIV not configured for requested user" "$err"
refused test -e /run/kiv
EOF
}

@test "with -a a broken account does not keep the others from starting" {
    in_host <<'EOF'
echo "al@ice net=100.64.0.12/30" >>"$registry"
account bob 100.64.0.8/30
echo "nobody-here net=100.64.0.16/30" >>"$registry"
echo "root net=100.64.0.20/30" >>"$registry"
account carol 100.64.0.24/31
account dave
capture kivctl start -a
same status 71 "$status"
same stdout "starting container: al@ice, network:100.64.0.12/30
starting container: bob, network:100.64.0.8/30
starting container: nobody-here, network:100.64.0.16/30
starting container: root, network:100.64.0.20/30
starting container: carol, network:100.64.0.24/31
starting container: dave, network:" "$out"
same stderr "kivctl: al@ice: al@ice: invalid character '@' in user name
nobody-here: nobody-here: unknown user
root: root: cannot create container for uid 0
carol: network 100.64.0.24/31 has no address number 2
dave: malformed network ''" "$err"
same "bob's live namespaces" $'net\nipc\nmnt' "$(mounted bob)"
same "files made" $'bob@ipc\nbob@mnt\nbob@net' "$(ls /run/kiv)"
EOF
}

@test "an account that is listed twice is started twice" {
    in_host <<'EOF'
account alice 100.64.0.4/30
echo "alice net=100.64.0.4/30" >>"$registry"
capture kivctl start alice
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30
starting container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
EOF
}

@test "an empty registry makes start -a do nothing" {
    in_host <<'EOF'
capture kivctl start -a
same status 0 "$status"
same stdout "" "$out"
same stderr "" "$err"
refused test -e /run/kiv
EOF
}

@test "no process, descriptor or file of the set-up is left" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
namespace="mnt:[$(stat -Lc %i /run/kiv/alice@mnt)]"
refused grep -F "$namespace" <(readlink /proc/[0-9]*/ns/mnt)
refused pgrep -x kivctl
same "runtime directory" $'alice@ipc\nalice@mnt\nalice@net' "$(ls /run/kiv)"
same "mounts at /mnt" "" "$(grep ' /mnt' /proc/self/mountinfo || true)"
same "content of /mnt" "" "$(ls /mnt)"
EOF
}
