#!/usr/bin/env bats
# kiv-refresh: what it changes in a running container, what it leaves unchanged, and what it
# refuses.
load helpers

# replace FILE TEXT: replaces a file like dpkg(1), by renaming a new one over it.
replace() {
    echo "$2" >"$1.new"
    mv "$1.new" "$1"
}

# of_view NAME: prints the inode number of the pinned mount namespace.
of_view() { stat -Lc %i "/run/kiv/$1@mnt"; }

# refreshed COMMAND…: the command must succeed without a message.
refreshed() {
    capture "$@"
    same "status of $*" 0 "$status"
    same "output of $*" "" "$out$err"
}

# host_is_writable: the host's root must not have been remounted.
host_is_writable() { touch /made && rm /made; }

# inside NAME PID: the process must be in the account's pinned view.
inside() { [ "$(readlink "/proc/$2/ns/mnt")" = "mnt:[$(of_view "$1")]" ]; }
export -f replace of_view refreshed host_is_writable inside

@test "later entries see the replaced file, and nothing that is hidden" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf 'hide\n    /etc/secret\nbind\n    /etc/bound\n' >"$configuration"
echo secret >/etc/secret
for file in /usr/share/tool /etc/bound; do echo old >"$file"; done
kivctl start alice >/dev/null
same "before" $'old\nold' "$(kiv-run alice cat /usr/share/tool /etc/bound)"
kiv-run alice sh -c 'exec 3</usr/share/tool; exec sleep 600' & # a name in use, as libc's always is
held=$!
eventually inside alice "$held"
replace /usr/share/tool new
replace /etc/bound new
view=$(of_view alice)
network=$(stat -Lc %i /run/kiv/alice@net /run/kiv/alice@ipc)
refreshed kiv-refresh alice
same "afterwards" $'new\nnew' "$(kiv-run alice cat /usr/share/tool /etc/bound)"
refused kiv-run alice test -e /etc/secret
same "type of the root" overlayfs "$(kiv-run alice stat -f -c %T /)"
refused test "$view" = "$(of_view alice)"
same "network and IPC" "$network" "$(stat -Lc %i /run/kiv/alice@net /run/kiv/alice@ipc)"
same "namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "marks" "" "$(marks)"
kill -0 "$held"
capture kivctl stop alice
same "status of stop" 0 "$status"
same "files left" "" "$(ls /run/kiv)"
EOF
}

@test "a changed configuration applies to later entries" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
kiv-run alice test -e /etc/hostname
printf 'hide\n    /etc/hostname\n' >/tmp/other.conf
refreshed kiv-refresh alice -c /tmp/other.conf
refused kiv-run alice test -e /etc/hostname
refreshed kiv-refresh alice
kiv-run alice test -e /etc/hostname
EOF
}

@test "connections, listening sockets and running processes continue" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
kiv-run alice socat TCP-LISTEN:8080,bind=127.0.0.1,fork,reuseaddr PIPE &
server=$!
answers() { [ "$(kiv-run alice socat -t 5 - TCP:127.0.0.1:8080 <<<hello 2>/dev/null)" = hello ]; }
eventually answers
coproc kiv-run -T alice socat - TCP:127.0.0.1:8080
client=$COPROC_PID
echo before >&"${COPROC[1]}"
read -r line <&"${COPROC[0]}"
same "answer before" before "$line"
refreshed kiv-refresh alice
echo after >&"${COPROC[1]}"
read -r line <&"${COPROC[0]}"
same "answer afterwards" after "$line"
answers
kill -0 "$server" "$client"
same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
EOF
}

@test "processes of earlier views, too, find the new file if nothing uses the old one" {
    in_host <<'EOF'
account alice 100.64.0.4/30
echo 0 >/usr/share/tool
kivctl start alice >/dev/null
coproc kiv-run -T alice sh -c 'while read -r line; do seen=$(cat /usr/share/tool); echo "$seen"; done' # by then cat has ended
seen() {
    echo >&"${COPROC[1]}"
    read -r line <&"${COPROC[0]}"
    echo "$line"
}
same "at first" 0 "$(seen)"
replace /usr/share/tool 1
refreshed kiv-refresh alice
same "in the view before" 1 "$(seen)"
replace /usr/share/tool 2
refreshed kiv-refresh -a
same "in the view before the last" 2 "$(seen)"
replace /usr/share/tool 3
refreshed kiv-refresh --in-place alice
same "after one in place" 3 "$(seen)"
refused inside alice "$COPROC_PID"
EOF
}

@test "with --in-place the view stays, and names that nothing uses are looked up again" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf 'bind\n    /etc/bound\n' >"$configuration"
for file in /usr/share/tool /etc/bound; do echo old >"$file"; done
kivctl start alice >/dev/null
same "before" $'old\nold' "$(kiv-run alice cat /usr/share/tool /etc/bound)"
replace /usr/share/tool new
replace /etc/bound new
view=$(of_view alice)
refreshed kiv-refresh alice --in-place
same "the view" "$view" "$(of_view alice)"
same "afterwards" $'new\nold' "$(kiv-run alice cat /usr/share/tool /etc/bound)"
host_is_writable
EOF
}

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

@test "a refresh works although the mounts were shared since the start, also with another namespace" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
view=$(of_view alice)
mount --make-rshared /
unshare --mount --propagation slave sleep 600 &
service=$!
apart() { [ "$(readlink "/proc/$service/ns/mnt")" != "$(readlink /proc/self/ns/mnt)" ] && grep -q sleep "/proc/$service/comm"; }
eventually apart
refreshed kiv-refresh alice
refused test "$view" = "$(of_view alice)"
same "who is inside" alice "$(kiv-run alice id -un)"
same marks "" "$(marks)"
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

@test "stop finds and ends the processes of every earlier view" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
residents=()
for view in 1 2 3; do
    kiv-run alice sleep 600 &
    residents+=($!)
    eventually inside alice $!
    refreshed kiv-refresh alice
done
capture kivctl stop alice
same status 0 "$status"
same stderr "alice: terminating processes: ${residents[0]}, ${residents[1]}, ${residents[2]}" "$err"
for pid in "${residents[@]}"; do refused test -e "/proc/$pid/ns/mnt"; done
same "files left" "" "$(ls /run/kiv)"
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

@test "the hook is run once with the accounts that have a new view" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol 100.64.0.12/30
kivctl start alice >/dev/null
kivctl start carol >/dev/null 2>&1
printf '#!/bin/sh\necho "$*" >>/tmp/told\n' >/etc/tarnwell/refresh-hook
chmod +x /etc/tarnwell/refresh-hook
refreshed kiv-refresh -a
same "told of all" "alice carol" "$(cat /tmp/told)"
refreshed kiv-refresh carol
refreshed kiv-refresh --in-place alice
kivctl stop -a >/dev/null 2>&1
refreshed kiv-refresh -a
same "told at last" $'alice carol\ncarol' "$(cat /tmp/told)"
kivctl start alice >/dev/null
printf '#!/bin/sh\nexit 3\n' >/etc/tarnwell/refresh-hook
capture kiv-refresh alice
same "status of a hook that fails" 71 "$status"
same "its last line" "kiv-refresh: /etc/tarnwell/refresh-hook has failed" "$(tail -1 <<<"$err")"
EOF
}

@test "with -a a new view has the mounts that the host made after the earlier views were built" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a >/dev/null 2>&1
for propagation in shared private; do
    mount --make-r$propagation /
    mount --make-private /run/kiv
    view=$(stat -Lc %i /run/kiv/alice@mnt)
    export view propagation
    with_lock bob exclusive bash -c '
        kiv-refresh -a >/tmp/said 2>&1 &
        until [ "$(stat -Lc %i /run/kiv/alice@mnt 2>/dev/null || echo "$view")" != "$view" ]; do sleep 0.01; done
        mount -t tmpfs "$propagation" /home/bob
        mkdir "/home/bob/tmp" "/home/bob/$propagation"' &
    wait $!
    refreshed() { ! pgrep --exact kiv-refresh >/dev/null; }
    eventually refreshed
    same "said" "" "$(cat /tmp/said)"
    same "home of bob" "$propagation tmp" "$(enter_as_root bob ls /home/bob | xargs)"
    umount /home/bob
done
EOF
}
