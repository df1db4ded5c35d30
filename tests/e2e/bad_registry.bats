#!/usr/bin/env bats
# Registries that are not text, invalid account names, and invalid networks.
load helpers

# The state that a start would change on the host.
state() {
    find /run/kiv 2>/dev/null || true
    cut -d ' ' -f 5- /proc/self/mountinfo
    ip -o link
    iptables-save | sed '/^#/d'
}
export -f state

@test "a registry that cannot be opened is refused before anything is created" {
    in_host <<'EOF'
before=$(state)
rm "$registry"
for operand in alice -a; do
    capture kivctl start "$operand"
    same "status of $operand" 71 "$status"
    same "stdout of $operand" "" "$out"
    same "stderr of $operand" "kivctl: cannot open /etc/tarnwell/kiv.users: No such file or directory" "$err"
done
ln -s kiv.users "$registry"
capture kivctl start -a
same stderr "kivctl: cannot open /etc/tarnwell/kiv.users: Too many levels of symbolic links" "$err"
rm "$registry"
install -o nobody -m 000 /dev/null "$registry"
capture setpriv --bounding-set -dac_override,-dac_read_search kivctl start -a
same status 71 "$status"
same stderr "kivctl: cannot open /etc/tarnwell/kiv.users: Permission denied" "$err"
same "state of the host" "$before" "$(state)"
EOF
}

@test "a registry that is a directory counts as empty" {
    in_host <<'EOF'
rm "$registry"
mkdir "$registry"
capture kivctl start -a
same status 0 "$status"
same stderr "" "$err"
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: KIV not configured for requested user" "$err"
EOF
}

@test "blanks, comments, line ends of other systems and a missing last newline do not matter" {
    in_host <<'EOF'
account alice
account bob
printf '# comment\r\n\n \t \r\n  # alice net=100.64.0.12/30\n#alice\n' >"$registry"
printf '\v\f\talice\t \tnet=100.64.0.4/30 \r\n bob net=100.64.0.8/30' >>"$registry"
capture kivctl start -a
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30
starting container: bob, network:100.64.0.8/30" "$out"
same stderr "umount(kiv) failed: Device or resource busy" "$err"
EOF
}

@test "settings other than the network are reported and the last network counts" {
    in_host <<'EOF'
account alice
echo "alice mtu=1500 net=100.64.0.4/30 NET=100.64.0.12/30 net=100.64.0.8/30 net" >"$registry"
capture kivctl start alice
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.8/30" "$out"
same stderr "unknown setting: mtu=1500
unknown setting: NET=100.64.0.12/30
unknown setting: net" "$err"
same "address inside" 100.64.0.10/30 "$(enter_as_root alice ip -4 -o addr show dev veth0 | awk '{print $4}')"
EOF
}

@test "a name is compared byte for byte" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(state)
for name in Alice alic alicee 'ali*' 'a?ice' '.*' 'alice ' ' alice' alice@net net=100.64.0.4/30 '#' $'alice\n'; do
    capture kivctl start "$name"
    same "status for '$name'" 71 "$status"
    same "stdout for '$name'" "" "$out"
    same "stderr for '$name'" "kivctl: KIV not configured for requested user" "$err"
done
same "state of the host" "$before" "$(state)"
EOF
}

@test "names of no account are refused and change nothing" {
    in_host <<'EOF'
names=(.. . / ../../etc/passwd /etc/passwd a/b root/ -a -abc --help 'al*' '?' '[a-z]*' '$(touch${IFS}/tmp/made)' '`id`'
    ';id' '|id' '&' '$HOME' '~root' "'" '"' '\' '%s%n' al:ice '!' $'\033[31m' $'\377\376' 1001 net=100.64.0.4/30
    "$(printf '%33s' x | tr ' ' x)" "$(printf '%300s' x | tr ' ' x)")
# an entry with a slash is in the password file, but would lead out of the runtime directory
echo "../../etc/passwd:x:2000:2000::/nonexistent:/bin/sh" >>/etc/passwd
echo "..:x:2001:2001::/nonexistent:/bin/sh" >>/etc/passwd
echo ".:x:2002:2002::/nonexistent:/bin/sh" >>/etc/passwd
before=$(state)
for name in "${names[@]}"; do
    printf '%s net=100.64.0.4/30\n' "$name" >"$registry"
    capture kivctl start -a
    same "status for '$name'" 71 "$status"
    same "stdout for '$name'" "starting container: $name, network:100.64.0.4/30" "$out"
    shown=${name//$'\033'/'\x1b'}
    same "stderr for '$name'" "kivctl: $shown: $shown: unknown user" "$err"
done
same "state of the host" "$before" "$(state)"
refused test -e /tmp/made
EOF
}

@test "names with the character that separates name and kind in namespace files are refused" {
    in_host <<'EOF'
before=$(state)
for name in al@ice @ alice@net @alice; do
    printf '%s net=100.64.0.4/30\n' "$name" >"$registry"
    capture kivctl start "$name"
    same "status for '$name'" 71 "$status"
    same "stderr for '$name'" "kivctl: $name: invalid character '@' in user name" "$err"
done
same "state of the host" "$before" "$(state)"
EOF
}

@test "a name or network with a NUL byte is invalid" {
    in_host <<'EOF'
account alice
before=$(state)
printf 'alice\0 net=100.64.0.4/30\nnobody-here net=100.64.0.8/30\n' >"$registry"
fails 71 kivctl start -a >/tmp/out 2>/tmp/err
same stdout "starting container: alice?, network:100.64.0.4/30
starting container: nobody-here, network:100.64.0.8/30" "$(tr '\0' '?' </tmp/out)"
same stderr 'kivctl: alice\x00: alice
nobody-here: nobody-here: unknown user' "$(cat /tmp/err)"
printf 'alice net=100.64.0.4/30\0\n' >"$registry"
fails 71 kivctl start alice >/tmp/out 2>/tmp/err
grep -qa "^kivctl: malformed network '100.64.0.4/30" /tmp/err
same "state of the host" "$before" "$(state)"
EOF
}

@test "accounts with unusual names get containers like any other" {
    in_host <<'EOF'
names=('*' '[a-z]' '$(id)' '`id`' ';' "'" '"' '\' '~' 1001 "$(printf '%32s' x | tr ' ' x)"
    "$(printf '%250s' x | tr ' ' x)")
number=0
for name in "${names[@]}"; do
    number=$((number + 4))
    printf '%s\n' "$name:x:$((2000 + number)):100::/nonexistent:/bin/sh" >>/etc/passwd
    printf '%s\n' "$name net=100.64.0.$number/30" >>"$registry"
done
capture kivctl start -a
same status 0 "$status"
same "other lines" "" \
    "$(grep -vE '^umount\(kiv\) failed|^/nonexistent: No such|^Warning: weird character' <<<"$err" || true)"
for name in "${names[@]}"; do
    enter_as_root "$name" grep -qF "$name:x:" /etc/passwd
done
same "addresses of the links" "${#names[@]}" "$(ip -4 -o addr show | grep -c ' 100\.64\.0\.')"
EOF
}

@test "an operand that only begins like the word for all is a name" {
    in_host <<'EOF'
account alice 100.64.0.4/30
echo "-abc net=100.64.0.8/30" >>"$registry"
capture kivctl start -abc
same status 71 "$status"
same stdout "starting container: -abc, network:100.64.0.8/30" "$out"
same stderr "kivctl: -abc: unknown user" "$err"
refused test -e /run/kiv
EOF
}

@test "a name that is too long for a file is refused before anything is created" {
    in_host <<'EOF'
name=$(printf '%252s' x | tr ' ' x)
echo "$name:x:2000:2000::/nonexistent:/bin/sh" >>/etc/passwd
echo "$name net=100.64.0.8/30" >>"$registry"
capture kivctl start "$name"
same status 71 "$status"
same stderr "kivctl: /run/kiv/$name@net: File name too long" "$err"
same "files made" "" "$(ls /run/kiv)"
same "links made" "" "$(ip -o link | grep veth- || true)"
EOF
}

@test "a line of a megabyte is an account that does not exist" {
    in_host <<'EOF'
account alice 100.64.0.4/30
{
    head -c 1000000 /dev/zero | tr '\0' x
    echo
    cat "$registry"
    echo "bob $(head -c 1000000 /dev/zero | tr '\0' x)"
} >/tmp/registry
cp /tmp/registry "$registry"
capture timeout 60 kivctl start alice
same status 0 "$status"
same stderr "" "$err"
enter alice true
capture timeout 60 kivctl start -a
same status 71 "$status"
same "lines of stderr" 3 "$(wc -l <<<"$err")"
EOF
}

@test "an account among a million lines is found in a few seconds" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob
{
    seq -f "# comment %.0f" 500000
    cat "$registry"
    seq -f "user-%.0f net=100.64.0.8/30" 500000
    echo "alice net=100.64.0.4/30"
} >/tmp/registry
cp /tmp/registry "$registry"
capture timeout 60 kivctl start alice
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30
starting container: alice, network:100.64.0.4/30" "$out"
EOF
}

@test "a malformed network is refused with its text before anything is created" {
    in_host <<'EOF'
account alice
before=$(state)
for network in 100.64.0.4 100.64.0.4/ /30 100.64.0/30 100.64.0.4.1/30 100.64..4/30 .64.0.4/30 100.64.0.4/33 100.64.0.256/30 \
    256.64.0.4/30 100.64.0.4/-1 100.64.0.4/+30 -100.64.0.4/30 100.64.0.4/30x x100.64.0.4/30 100.64.0.4//30 100.64.0.4/30/2 \
    100.64.0.4/0x1e 0x64.64.0.4/30 0100.64.0.4/30 100.64.0.4/030 100.64.00.4/30 100,64,0,4/30 100.64.0.4/255.255.255.252 \
    99999999999999999999.64.0.4/30 100.64.0.4/4294967326 1e2.64.0.4/30 ::1/126 fd00::4/126 alice 100.64.0.4/30,100.64.0.8/30 \
    '100.64.0.4/30;id' '%s' $'100.64.0.4/30\302\240' $'\357\274\221.64.0.4/30' ""; do
    echo "alice net=$network" >"$registry"
    capture kivctl start alice
    same "status for '$network'" 71 "$status"
    same "stdout for '$network'" "starting container: alice, network:$network" "$out"
    same "stderr for '$network'" "kivctl: malformed network '$network'" "$err"
done
same "state of the host" "$before" "$(state)"
EOF
}

@test "a network without two addresses is refused before anything is created" {
    in_host <<'EOF'
account alice
before=$(state)
# refuses NETWORK MESSAGE
refuses() {
    echo "alice net=$1" >"$registry"
    capture kivctl start alice
    same "status for $1" 71 "$status"
    same "stderr for $1" "kivctl: $2" "$err"
}
refuses 100.64.0.4/31 "network 100.64.0.4/31 has no address number 2"
refuses 100.64.0.5/31 "network 100.64.0.4/31 has no address number 2"
refuses 100.64.0.4/32 "network 100.64.0.4/32 has no address number 1"
same "state of the host" "$before" "$(state)"
EOF
}

@test "an address within a network means the network" {
    in_host <<'EOF'
account alice 100.64.0.7/30
capture kivctl start alice
same stdout "starting container: alice, network:100.64.0.7/30" "$out"
same stderr "" "$err"
same "address outside" 100.64.0.5/30 "$(ip -4 -o addr show dev veth-alice | awk '{print $4}')"
same "address inside" 100.64.0.6/30 "$(enter_as_root alice ip -4 -o addr show dev veth0 | awk '{print $4}')"
EOF
}
