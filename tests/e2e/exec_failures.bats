#!/usr/bin/env bats
# Failures of exec: missing names, containers, homes, shells and rights.
load helpers

# refuses_entry USER MESSAGE: exec prints that it switches, then fails with the message and without
# a shell.
refuses_entry() {
    capture timeout 20 kivctl exec "$1" <<<'echo a shell'
    same "exit status" 71 "$status"
    same stdout "Switching into container '$1'..." "$out"
    same stderr "kivctl: $2" "$err"
}
export -f refuses_entry

@test "names that cannot have a container are refused before anything is printed on standard output" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
while IFS='|' read -r name message; do
    capture kivctl exec "$name" <<<'echo a shell'
    same "status for '$name'" 71 "$status"
    same "stdout for '$name'" "" "$out"
    same "stderr for '$name'" "kivctl: $message" "$err"
done <<'END'
-a|-a: unknown user
|: unknown user
carol|carol: unknown user
root|root: cannot create container for uid 0
alice@net|alice@net: invalid character '@' in user name
alice/|alice/: unknown user
END
EOF
}

@test "a container that is not running is named with the command that starts it" {
    in_host <<'EOF'
account alice 100.64.0.4/30
message="/run/kiv/alice@net: container is not running, start it with: kivctl start alice"
refuses_entry alice "$message"
same "in debug mode" "Switching into container 'alice'...
kivctl: $message" "$(kivctl -d exec alice 2>/tmp/errors </dev/null; cat /tmp/errors)"
refused test -e /run/kiv
prepared_runtime_directory
refuses_entry alice "$message"
touch /run/kiv/alice@{net,ipc,mnt}
refuses_entry alice "$message"
rm /run/kiv/alice@net
mkdir /run/kiv/alice@net
refuses_entry alice "$message"
EOF
}

@test "nothing is joined while one of the three namespaces is missing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
for kind in net ipc mnt; do
    kivctl start alice >/dev/null
    message="/run/kiv/alice@$kind: container is not running, start it with: kivctl start alice"
    umount --lazy "/run/kiv/alice@$kind"
    injected setns:error=EIO kivctl exec alice <<<true
    same "stderr for a plain $kind file" "kivctl: $message" "$err"
    refused grep setns /tmp/trace
    rm "/run/kiv/alice@$kind"
    refuses_entry alice "$message"
done
EOF
}

@test "a namespace file of another kind is refused, and nothing is joined" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
umount /run/kiv/alice@ipc
mount --bind /run/kiv/alice@net /run/kiv/alice@ipc
refuses_entry alice "/run/kiv/alice@ipc: is a namespace of another kind"
umount /run/kiv/alice@ipc
mount --bind /proc/self/ns/user /run/kiv/alice@ipc
refuses_entry alice "/run/kiv/alice@ipc: is a namespace of another kind"
injected setns:error=EIO kivctl exec alice <<<true
refused grep setns /tmp/trace
EOF
}

@test "a namespace file that is a symbolic link is not followed, and a pipe does not block" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a >/dev/null 2>&1
umount /run/kiv/alice@net
rm /run/kiv/alice@net
ln -s bob@net /run/kiv/alice@net
refuses_entry alice "/run/kiv/alice@net: Too many levels of symbolic links"
rm /run/kiv/alice@net
mkfifo /run/kiv/alice@net
refuses_entry alice "/run/kiv/alice@net: container is not running, start it with: kivctl start alice"
EOF
}

@test "a namespace that cannot be joined is named with the reason" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
for kind in 1:net 2:ipc 3:mnt; do
    injected "setns:error=EPERM:when=${kind%:*}" kivctl exec alice <<<'echo a shell'
    same status 71 "$status"
    same stdout "Switching into container 'alice'..." "$out"
    same stderr "kivctl: /run/kiv/alice@${kind#*:}: setns() failed: Operation not permitted" "$err"
done
EOF
}

@test "an account without a usable home gets its shell at the root directory" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /usr/local/file
kivctl start alice >/dev/null
cd /usr
while IFS='|' read -r home reason; do
    sed -i "s|^\(alice:.*:\)[^:]*\(:/bin/bash\)|\1$home\2|" /etc/passwd
    capture kivctl exec alice <<<'echo "$HOME $PWD $OLDPWD"; readlink /proc/$$/cwd'
    same "status for '$home'" 0 "$status"
    same "stdout for '$home'" "$home / "$'\n/' "$out"
    same "stderr for '$home'" "chdir($home) failed: $reason" "$err"
done <<'END'
/nowhere/alice|No such file or directory
/root|Permission denied
/usr/local/file|Not a directory
relative|No such file or directory
|No such file or directory
END
EOF
}

@test "a shell that cannot be run ends exec with 255" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -m 0644 /bin/bash /usr/local/bin/not-executable
install -m 0700 /bin/bash /usr/local/bin/roots-only
install -m 0755 /dev/null /usr/local/bin/empty
kivctl start alice >/dev/null
while IFS='|' read -r shell reason; do
    sed -i "s|^\(alice:.*\):[^:]*$|\1:$shell|" /etc/passwd
    capture kivctl exec alice <<<'echo a shell'
    same "status for '$shell'" 255 "$status"
    same "stdout for '$shell'" "Switching into container 'alice'..." "$out"
    same "stderr for '$shell'" "ERROR during execv: $reason" "$err"
done <<'END'
/none|No such file or directory
/usr/local/bin/not-executable|Permission denied
/usr/local/bin/roots-only|Permission denied
/usr/local/bin/empty|Exec format error
/usr/local|Permission denied
bash|No such file or directory
|No such file or directory
END
EOF
}

@test "without home and shell both lines are printed, the home's first" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
usermod --home /nowhere --shell /none alice 2>/dev/null
capture kivctl exec alice
same status 255 "$status"
same stderr "chdir(/nowhere) failed: No such file or directory
ERROR during execv: No such file or directory" "$err"
EOF
}

@test "no shell runs if the change of user fails or leaves a way back to root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
for fault in setgroups:error=EPERM setresgid:error=EPERM setresuid:error=EPERM setresuid:retval=0 \
    setresuid:retval=0:when=2; do
    injected "$fault" kivctl exec alice <<<'echo a shell'
    same "status with $fault" 71 "$status"
    same "stdout with $fault" "Switching into container 'alice'..." "$out"
    same "stderr with $fault" "kivctl: setuid() failed: Operation not permitted" "$err"
done
EOF
}

@test "an ID that means no change to the kernel is refused" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
sed -i 's/^alice:x:[0-9]*:/alice:x:4294967295:/; s/^bob:x:\([0-9]*\):[0-9]*:/bob:x:\1:4294967295:/' /etc/passwd
kivctl start -a >/dev/null 2>&1 || true
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "live namespaces" $'net\nipc\nmnt' "$(mounted bob)"
refuses_entry alice "setuid() failed: Invalid argument"
refuses_entry bob "setuid() failed: Invalid argument"
EOF
}

@test "an account may have the highest ID" {
    in_host <<'EOF'
account alice 100.64.0.4/30
sed -i 's/^alice:x:[0-9]*:/alice:x:4294967294:/' /etc/passwd
chown -R alice /home/alice
kivctl start alice >/dev/null
same stdout "4294967294 0::/user.slice/user-4294967294.slice/kiv" \
    "$(kivctl exec alice <<<'echo "$(id -u) $(grep ^0: /proc/$$/cgroup)"')"
EOF
}

@test "an account that is removed between its two look-ups is reported" {
    in_host <<'EOF'
account alice 100.64.0.4/30
# with this source the two look-ups are separate
sed -i 's/^passwd:.*/passwd: compat/' /etc/nsswitch.conf
kivctl start alice >/dev/null
injected openat:error=ENOENT:when=2 -P /etc/passwd kivctl exec alice <<<'echo a shell'
same status 71 "$status"
same stdout "Switching into container 'alice'..." "$out"
same stderr "kivctl: Cannot get passwd details for user alice" "$err"
EOF
}
