#!/usr/bin/env bats
# kiv-refresh: what it refuses, what a failed or killed refresh leaves, and what runs beside it.
load helpers
load refresh

@test "an account that is not running is refused by name and skipped with -a" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
refreshed kiv-refresh -a
for option in --in-place -d; do
    capture kiv-refresh "$option" alice
    same "status with $option" 71 "$status"
    same "stderr with $option" "kiv-refresh: /run/kiv/alice@net: container is not running, start it with: kivctl start alice" "$err"
done
kivctl start bob >/dev/null
view=$(of_view bob)
refreshed kiv-refresh -a
refused test "$view" = "$(of_view bob)"
capture kiv-refresh alice
same "status beside a running one" 71 "$status"
kivctl stop bob >/dev/null
refreshed kiv-refresh -a
same "files made" "" "$(ls /run/kiv)"
EOF
}

@test "in the namespace of an interrupted start nothing is remounted, and the text names start" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start bob >/dev/null
# its root is the host's
injected mount:error=ENOMEM:when=2+ -P / kivctl start alice
for option in -d --in-place; do
    capture kiv-refresh "$option" alice
    same "status with $option" 71 "$status"
    same "stderr with $option" "kiv-refresh: /run/kiv: starting the container of alice was interrupted, start it with: kivctl start alice" "$err"
    host_is_writable
done
view=$(of_view bob)
capture kiv-refresh -a
same "status of all" 71 "$status"
same "stderr of all" "kiv-refresh: alice: /run/kiv: starting the container of alice was interrupted, start it with: kivctl start alice" "$err"
refused test "$view" = "$(of_view bob)"
# if the runtime directory has no attributes, only the root shows it
python3 -c 'import os; os.removexattr("/run/kiv", "trusted.kiv.unfinished.alice")'
for option in -d --in-place; do
    capture kiv-refresh "$option" alice
    same "status without the mark, with $option" 71 "$status"
    same "stderr without the mark, with $option" "kiv-refresh: /run/kiv/alice@mnt: the view is not complete, stop the container and start it: kivctl stop alice, kivctl start alice" "$err"
    host_is_writable
done
EOF
}

@test "a process that has joined only the network keeps its root writable" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
nsenter --net=/run/kiv/alice@net sleep 600 &
nsenter --net=/run/kiv/alice@net unshare --mount sleep 600 &
private=$!
apart() { [ "$(readlink "/proc/$private/ns/mnt")" != "$(readlink /proc/self/ns/mnt)" ]; }
eventually apart
refreshed kiv-refresh alice
refreshed kiv-refresh --in-place alice
host_is_writable
nsenter --target "$private" --mount touch /made
EOF
}

@test "when a view cannot be built the earlier one stays" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
view=$(of_view alice)
injected mkdir:error=ENOSPC -P /mnt/kiv kiv-refresh alice
same status 71 "$status"
same stderr "kiv-refresh: mkdir(kiv) failed: No space left on device
kiv-refresh: the new view could not be built, the earlier one stays" "$err"
same "the view" "$view" "$(of_view alice)"
same marks "" "$(marks)"
same "who is inside" alice "$(kiv-run alice id -un)"
injected unshare:error=ENOSPC kiv-refresh -a
same "last line of stderr" "kiv-refresh: alice: no new mnt namespace was created" "$(tail -1 <<<"$err")"
same "the view without a namespace" "$view" "$(of_view alice)"
injected fsetxattr:error=ENOSPC kiv-refresh alice
same "stderr without a mark" "kiv-refresh: /run/kiv: cannot mark a container that is being refreshed: No space left on device" "$err"
injected umount2:error=ENOMEM -P /run/kiv/alice@mnt kiv-refresh alice
same "stderr of a busy file" "kiv-refresh: Cannot unmount /run/kiv/alice@mnt: Cannot allocate memory" "$err"
same "the view at last" "$view" "$(of_view alice)"
same "marks at last" "" "$(marks)"
refreshed kiv-refresh alice
EOF
}

@test "a view without the home does not replace the earlier one" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
view=$(of_view alice)
mv /home/alice /home/gone
capture kiv-refresh alice
same status 71 "$status"
same stderr "/home/alice: No such file or directory
kiv-refresh: the home cannot be mounted, giving up
kiv-refresh: the new view could not be built, the earlier one stays" "$err"
same "the view" "$view" "$(of_view alice)"
same marks "" "$(marks)"
same "the home" tmp "$(kiv-run alice ls /home/alice)"
mv /home/gone /home/alice
refreshed kiv-refresh alice
refused test "$view" = "$(of_view alice)"
EOF
}

@test "a refresh killed between the two views is completed by the next start, and nobody enters meanwhile" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
network=$(stat -Lc %i /run/kiv/alice@net)
injected mount:signal=KILL -P /run/kiv/alice@mnt kiv-refresh alice
refused kiv-run alice true
capture kiv-refresh alice
same "status of a refresh" 71 "$status"
capture kivctl start alice
same "status of start" 0 "$status"
same "namespaces at last" $'net\nipc\nmnt' "$(mounted alice)"
same "network" "$network" "$(stat -Lc %i /run/kiv/alice@net)"
same "marks" "" "$(marks)"
same "who is inside" alice "$(kiv-run alice id -un)"
injected mount:error=ENOMEM -P /run/kiv/alice@mnt kiv-refresh alice
same "status of a mount that failed" 71 "$status"
same "namespaces then" $'net\nipc' "$(mounted alice)"
refused kiv-run alice true
capture kivctl start alice
same "who is inside then" alice "$(kiv-run alice id -un)"
refreshed kiv-refresh alice
EOF
}

@test "an entry during a refresh waits and gets the new view" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf 'bind\n    /etc/bound\n' >"$configuration"
echo old >/etc/bound # a bound file, which stays the same in the earlier view
kivctl start alice >/dev/null
replace /etc/bound new
strace -f -o /tmp/trace -e trace=pivot_root -e inject=pivot_root:delay_enter=1500000 kiv-refresh alice &
eventually grep -q pivot_root /tmp/trace
same "what is seen" new "$(kiv-run alice cat /etc/bound)"
wait $!
EOF
}

@test "a refresh while stop waits for processes leaves nothing of the container" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
kiv-run alice sleep 600 &
eventually inside alice $!
kivctl stop alice >/dev/null 2>/tmp/stopped &
stop=$!
eventually grep -q . /tmp/stopped
view=$(of_view alice)
refreshed kiv-refresh alice
refused test "$view" = "$(of_view alice)"
wait "$stop"
same "lines of stop" 1 "$(wc -l </tmp/stopped)"
same "files left" "" "$(ls /run/kiv)"
same "marks left" "" "$(marks)"
same "rules left" "" "$(iptables-save | grep veth || true)"
EOF
}

@test "options may be in any order, and a wrong call changes nothing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
view=$(of_view alice)
refreshed kiv-refresh alice --in-place -c "$configuration"
refreshed kiv-refresh --config="$configuration" --in-place -- alice
says() {
    local wanted=$1
    shift
    capture kiv-refresh "$@"
    same "status of $*" 64 "$status"
    same "stderr of $*" "kiv-refresh: $wanted" "$err"
    same "stdout of $*" "" "$out"
}
says "missing user name (or '-a' option)"
says "missing user name (or '-a' option)" --in-place
says "too many arguments" alice bob
says "too many arguments" -a alice
says "unknown option '-x'" -x alice
says "unknown option '--in-places'" alice --in-places
says "option '-c' requires an argument." alice -c
capture kiv-refresh -c /nowhere alice
same "status without a configuration" 64 "$status"
[[ $err == "kiv-refresh: /nowhere: "* ]]
printf 'hide more\n' >/tmp/bad.conf
capture kiv-refresh -c /tmp/bad.conf alice
same "status of a bad configuration" 64 "$status"
[[ $err == "kiv-refresh: /tmp/bad.conf: line 1: "* ]]
capture kiv-refresh nobody
same "an unknown account" "71 kiv-refresh: KIV not configured for requested user" "$status $err"
capture kiv-refresh ""
same "an empty name" "71 kiv-refresh: KIV not configured for requested user" "$status $err"
capture setpriv --reuid alice --regid alice --clear-groups kiv-refresh alice
same "another user" "64 kiv-refresh: only root may run this program" "$status $err"
same version "$(kivctl --version)" "$(setpriv --reuid alice --regid alice --clear-groups kiv-refresh -v)"
kiv-refresh --help | grep -q '^Usage: kiv-refresh'
same "the view" "$view" "$(of_view alice)"
EOF
}

@test "a registry with an unknown account: the others are refreshed, and the status is 71" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
view=$(of_view alice)
sed -i '1i ghost net=100.64.0.8/30' "$registry"
capture kiv-refresh -a
same status 71 "$status"
same stderr "kiv-refresh: ghost: ghost: unknown user" "$err"
refused test "$view" = "$(of_view alice)"
EOF
}
