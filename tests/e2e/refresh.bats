#!/usr/bin/env bats
# kiv-refresh: what it changes in a running container, and what it leaves unchanged.
load helpers
load refresh

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
