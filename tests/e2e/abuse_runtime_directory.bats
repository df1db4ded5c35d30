#!/usr/bin/env bats
# A runtime directory that is full, is read-only, or has unexpected files in it.
load helpers
load with_abuse

@test "start adds only the runtime directory and the pins to the host's mounts, and after stop only the directory is left" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
# with numbers, flags and propagation: the host's own mounts must not change
pins() { sed -E 's/^.* (\/kiv|[a-z]+:)[^ ]* (\/run\/kiv[^ ]*) .*/\1 \2/'; }
before=$(cat /proc/self/mountinfo)
kivctl start alice
cat /proc/self/mountinfo >/tmp/running
same "new after start" "/kiv /run/kiv
net: /run/kiv/alice@net
ipc: /run/kiv/alice@ipc
mnt: /run/kiv/alice@mnt" "$(diff <(echo "$before") /tmp/running | sed -n 's/^> //p' | pins)"
same "gone after start" "" "$(diff <(echo "$before") /tmp/running | grep '^<' || true)"
kivctl stop alice
same "new after stop" "/kiv /run/kiv" "$(diff <(echo "$before") /proc/self/mountinfo | sed -n 's/^> //p' | pins)"
same "gone after stop" "" "$(diff <(echo "$before") /proc/self/mountinfo | grep '^<' || true)"
EOF
}

@test "a /run that is full at any of the files ends the start with that file's message" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
seen=
# From Linux 6.6 on a mark needs separate room.
for ((room = 0; room <= 7; room++)); do
    mount -t tmpfs -o mode=755,size=1m,nr_inodes=$((room + 1)) run /run # one for the directory itself
    capture timeout 20 kivctl start alice
    echo "room for $room: $status: $err"
    if ((status != 0)); then
        ((room < 6))
        has_run 71
        [[ $seen == *"$err"$'\n' ]] || seen+="$err"$'\n'
        same "live namespaces" "" "$(mounted alice)"
        capture timeout 20 kivctl exec alice
        same "status of exec" 71 "$status"
        active=no
        [ ! -e /run/kiv/alice@mnt ] || active=yes # status checks only the file
        same "output of status" "Account: alice
Active: $active" "$(kivctl status alice | head -n 2)"
    else
        ((room > 4))
        same stderr "" "$err"
        same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    fi
    mount -o remount,nr_inodes=100 /run
    recovers alice
    umount --lazy /run
done
same "what was said" "kivctl: /run/kiv: mkdir() failed: No space left on device
kivctl: /run/kiv: cannot lock: No space left on device
kivctl: /run/kiv/alice@ipc: cannot create: No space left on device
kivctl: /run/kiv/alice@mnt: cannot create: No space left on device
" "$(grep -vE "alice@net: cannot create|cannot mark a container" <<<"$seen")
"
EOF
}

@test "on a read-only /run nothing can be started, and stop and status report the present state" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
mount -o remount,ro /run
capture timeout 20 kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv: mkdir() failed: Read-only file system" "$err"
for command in stop status; do
    capture timeout 20 kivctl "$command" alice
    same "status of $command" 0 "$status"
    same "stderr of $command" "" "$err"
done
mount -o remount,rw /run
kivctl start bob
mount -o remount,ro /run # the bind mount on /run/kiv has its own flag, but the file system is read-only
capture timeout 20 kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv/alice@net: cannot create: Read-only file system" "$err"
same "who is in the other container" bob "$(kivctl exec bob <<<'id -un')"
mount -o remount,rw /run
recovers alice
recovers bob
EOF
}

@test "containers can be started, entered and stopped with a full disk behind the standard streams" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
mkdir /tmp/full
mount -t tmpfs -o size=64k full /tmp/full
head -c 65536 /dev/zero >/tmp/full/file
refused cp /etc/passwd /tmp/full 2>/dev/null
status=0
(cd /tmp/full && kivctl -d start alice >/tmp/full/file.out 2>/tmp/full/file.err) || status=$?
same status 0 "$status"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "who is inside" alice "$(kivctl exec alice <<<'id -un')"
status=0
kivctl stop alice >/tmp/full/file.out || status=$?
same "status of stop" 0 "$status"
same "files left" "" "$(ls /run/kiv)"
recovers alice
EOF
}

@test "plain files in place of namespace files do not count as namespaces" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice
for kind in net ipc mnt cgroup; do
    echo "not a namespace" >"/run/kiv/alice@$kind"
    capture timeout 20 kivctl exec alice
    same "status of exec with $kind" 71 "$status"
    capture timeout 20 kivctl start alice
    same "status of start with $kind" 0 "$status"
    same "stderr of start with $kind" "" "$err"
    same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    same "who is inside" alice "$(kivctl exec alice <<<'id -un')"
    capture timeout 20 kivctl stop alice
    same "stderr of stop with $kind" "" "$err"
    same "files left" "" "$(ls /run/kiv)"
    pair_is_gone alice
done
recovers alice
EOF
}

@test "a path that is neither file nor namespace in place of a namespace file is refused and not opened" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice
before=$(settled_state)
for kind in net ipc mnt; do
    for thing in directory full-directory dangling-link link; do
        file=/run/kiv/alice@$kind
        case $thing in
            directory) mkdir "$file" ;;
            full-directory) mkdir -p "$file/below" ;;
            dangling-link) ln -s /nowhere "$file" ;;
            link) ln -s /root "$file" ;;
        esac
        capture timeout 20 kivctl start alice
        case $thing in
            *directory) reason="Not a directory" ;;
            *link) reason="Too many levels of symbolic links" ;;
        esac
        [[ $err == "kivctl: "*"$file"*": $reason" ]]
        same "status of start" 71 "$status"
        capture timeout 20 kivctl exec alice
        same "status of exec" 71 "$status"
        capture timeout 20 kivctl status alice
        same "status of status" 0 "$status"
        capture timeout 20 kivctl stop alice
        same "status of stop" 0 "$status"
        rm -rf "$file"
        same "state of the host" "$before" "$(settled_state)"
    done
done
recovers alice
EOF
}

@test "a pipe, a socket or a device in place of a namespace file is mounted over and never blocks" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice
for thing in pipe socket device; do
    file=/run/kiv/alice@ipc
    case $thing in
        pipe) mkfifo "$file" ;;
        socket) perl -MIO::Socket::UNIX -e 'IO::Socket::UNIX->new(Local => shift, Listen => 1) or die' "$file" ;;
        device) mknod "$file" c 1 3 ;;
    esac
    capture timeout 20 kivctl exec alice
    same "status of exec with a $thing" 71 "$status"
    capture timeout 20 kivctl start alice
    same "status of start with a $thing" 0 "$status"
    same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    recovers alice
done
EOF
}

@test "a link in place of a namespace file never makes a namespace be mounted on a file of the host" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
kivctl stop alice
touch /srv/file
ln -s /srv/file /run/kiv/alice@net
capture timeout 20 kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv/alice@net: Too many levels of symbolic links" "$err"
same "mounts on the host's file" "" "$(grep -F ' /srv/file ' /proc/self/mountinfo || true)"
recovers alice
EOF
}

@test "a namespace file that is mounted twice is a running container, and is gone after as many stops" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
for kind in net ipc mnt; do
    mount --bind "/run/kiv/alice@$kind" "/run/kiv/alice@$kind"
done
capture timeout 20 kivctl start alice
same stderr "" "$err"
same "namespace mounts" 6 "$(grep -c ' /run/kiv/alice@' /proc/self/mountinfo)"
same "who is inside" alice "$(kivctl exec alice <<<'id -un')"
capture timeout 20 kivctl stop alice
same status 0 "$status"
same "who is inside after a stop" alice "$(kivctl exec alice <<<'id -un')"
capture timeout 20 kivctl stop alice
same "files left" "" "$(ls /run/kiv)"
recovers alice
EOF
}
