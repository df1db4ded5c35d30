#!/usr/bin/env bats
# How the account's home and its tmp directory appear in the container, and when they do not.
load helpers

@test "home and /tmp are the host's directories, writable for the account" {
    in_host <<'EOF'
account alice 100.64.0.4/30
echo outside >/home/alice/file
kivctl start alice
same content outside "$(enter alice cat /home/alice/file)"
enter alice bash -c 'echo inside >/home/alice/made; echo temporary >/tmp/made'
same "what the host has" "inside temporary" "$(cat /home/alice/made) $(cat /home/alice/tmp/made)"
same "owner of /tmp" "alice 755" "$(enter alice stat -c '%U %a' /tmp)"
EOF
}

@test "an account without a home on disk is reported and gets the rest of the root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
rm -r /home/alice
capture kivctl start alice
same status 0 "$status"
same stderr "/home/alice: No such file or directory" "$err"
same "mounts" $'/\n/dev/pts\n/proc\n/run' "$(enter_as_root alice awk '{print $5}' /proc/self/mountinfo)"
refused enter_as_root alice test -e /home/alice
enter alice test -e /etc/passwd
EOF
}

@test "a home that is a file is ignored silently" {
    in_host <<'EOF'
account alice 100.64.0.4/30
rm -r /home/alice
touch /home/alice
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "mounts" $'/\n/dev/pts\n/proc\n/run' "$(enter_as_root alice awk '{print $5}' /proc/self/mountinfo)"
EOF
}

@test "a home that is a link is ignored silently, whoever owns the link" {
    for owner in root alice; do
        export owner
        in_host <<'EOF'
account alice 100.64.0.4/30
mv /home/alice /srv/alice
ln -s /srv/alice /home/alice
chown -h "$owner" /home/alice
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "mounts" $'/\n/dev/pts\n/proc\n/run' "$(enter_as_root alice awk '{print $5}' /proc/self/mountinfo)"
EOF
    done
}

@test "an account without a home in its password entry gets none, silently" {
    in_host <<'EOF'
account alice 100.64.0.4/30
sed -i 's#:/home/alice:#::#' /etc/passwd
capture kivctl -d start alice
same status 0 "$status"
same stderr "" "$err"
same "last lines of stdout" "Creating file: /mnt/kiv/etc/passwd
OK." "$(tail -2 <<<"$out")"
same "mounts" $'/\n/dev/pts\n/proc\n/run' "$(enter_as_root alice awk '{print $5}' /proc/self/mountinfo)"
EOF
}

@test "a home on its own file system is in the container" {
    in_host <<'EOF'
mkdir /home/alice
mount -t tmpfs alices-home /home/alice
account alice 100.64.0.4/30
chown alice:alice /home/alice
touch /home/alice/file
capture kivctl start alice
same stderr "" "$err"
same "what the account sees" $'file\ntmp' "$(enter alice ls -A /home/alice)"
enter alice touch /home/alice/made /tmp/made
EOF
}

@test "a home on another file system is in the container, and its neighbours are not" {
    in_host <<'EOF'
program_elsewhere
mount -t tmpfs -o mode=711 homes /home
account alice 100.64.0.4/30
account bob 100.64.0.8/30
capture kivctl start alice
same stderr "" "$err"
same "what root sees inside" alice "$(enter_as_root alice ls -A /home)"
same "mode of /home" 711 "$(enter alice stat -c %a /home)"
enter alice touch /home/alice/made /tmp/made
EOF
}

@test "under the home's mount the layer has a directory like the host's" {
    in_host <<'EOF'
account alice 100.64.0.4/30
chmod 1710 /home/alice
printf '%s\n' empty "    /home" >"$configuration"
kivctl start alice
touch /home/alice/file
enter_as_root alice umount /home/alice
same "what was below" "/home/alice 1710 $(id -u alice):$(id -g alice)" \
    "$(enter_as_root alice find /home/alice -printf '%p %m %U:%G\n')"
EOF
}

@test "the path of a home may have links of root and directories that may not be listed" {
    in_host <<'EOF'
mkdir /srv/volume
mkdir -m 711 /srv/volume/homes
account alice 100.64.0.4/30
mv /home/alice /srv/volume/homes/
ln -s volume /srv/current
program_elsewhere
mv /home /home.before
ln -s /srv/current/homes /home
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
enter alice touch /home/alice/made /tmp/made
test -e /srv/volume/homes/alice/made
test -e /srv/volume/homes/alice/tmp/made
EOF
}

@test "a home whose path has an account's link is not in the container" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
install -d -o bob /srv/secret /srv/secret/bob /srv/secret/bob/tmp
ln -s /srv/secret /home/alice/link
chown -h alice /home/alice/link
sed -i 's#:/home/bob:#:/home/alice/link/bob:#' /etc/passwd
capture kivctl start bob
same status 0 "$status"
same stderr "/home/alice/link/bob: Too many levels of symbolic links" "$err"
same "mounts" $'/\n/dev/pts\n/proc\n/run' "$(enter_as_root bob awk '{print $5}' /proc/self/mountinfo)"
EOF
}

@test "a home without a tmp directory is reported and mounted" {
    in_host <<'EOF'
account alice 100.64.0.4/30
rmdir /home/alice/tmp
capture kivctl start alice
same status 0 "$status"
same stderr "mount(/home/alice/tmp) to /tmp failed: No such file or directory" "$err"
enter alice touch /home/alice/made
refused enter_as_root alice mountpoint -q /tmp
EOF
}

@test "a tmp directory that is a link is never followed" {
    for target in /srv/secret /home/bob /run/kiv .; do
        export target
        in_host <<'EOF'
account alice 100.64.0.4/30
account bob
mkdir -m 777 /srv/secret
touch {/srv/secret,/home/bob,/home/alice}/file
printf '%s\n' hide "    /srv/secret" >"$configuration"
rmdir /home/alice/tmp
ln -s "$target" /home/alice/tmp
chown -h alice /home/alice/tmp
capture kivctl start alice
same status 0 "$status"
same stderr "mount(/home/alice/tmp) to /tmp failed: Too many levels of symbolic links" "$err"
same "what root sees inside" "" "$(enter_as_root alice ls -A /tmp)"
refused enter_as_root alice mountpoint -q /tmp
enter alice test -e /home/alice/file
EOF
    done
}

@test "a tmp that is a file is reported" {
    in_host <<'EOF'
account alice 100.64.0.4/30
rmdir /home/alice/tmp
touch /home/alice/tmp
capture kivctl start alice
same status 0 "$status"
same stderr "mount(/home/alice/tmp) to /tmp failed: Not a directory" "$err"
refused enter_as_root alice mountpoint -q /tmp
EOF
}

@test "a home that is written with additional slashes is the same directory" {
    in_host <<'EOF'
account alice 100.64.0.4/30
sed -i 's#:/home/alice:#://home///alice/:#' /etc/passwd
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
enter alice touch /home/alice/made /tmp/made
test -e /home/alice/made -a -e /home/alice/tmp/made
EOF
}

@test "a home that is the root is refused, however it is written, and has no tmp" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(getent passwd alice)
for home in / /// /srv/.. /./; do
    sed -i "s#^alice:.*#${before/:\/home\/alice:/:$home:}#" /etc/passwd
    capture kivctl -d start alice
    same "status of $home" 0 "$status"
    same "stderr of $home" "bind-mount($home to /mnt/temp-root$home) failed: Device or resource busy" "$err"
    refused grep tmpdir <<<"$out"
    same "mounts with $home" $'/\n/dev/pts\n/proc\n/run' \
        "$(enter_as_root alice awk '{print $5}' /proc/self/mountinfo)"
    same "the shell's own" alice "$(enter alice id -un)"
    kivctl stop alice
done
EOF
}

@test "a home that is a link of root is followed when it is written with a slash at its end" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/volume
mv /home/alice /srv/volume/alice
chmod 1710 /srv/volume/alice
ln -s /srv/volume/alice /home/alice
for slashes in / //; do
    sed -i "s#:/home/alice[/]*:#:/home/alice$slashes:#" /etc/passwd
    capture kivctl start alice
    same status 0 "$status"
    same stderr "" "$err"
    same "what is at its path" "directory 1710 alice" "$(enter alice stat -c '%F %a %U' /home/alice)"
    enter alice touch /home/alice/made /tmp/made
    rm /srv/volume/alice/made /srv/volume/alice/tmp/made
    kivctl stop alice
done
EOF
}

@test "a home that is an account's link is not followed when it is written with a slash at its end" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mv /home/alice /srv/alice
ln -s /srv/alice /home/alice
chown -h alice /home/alice
sed -i 's#:/home/alice:#:/home/alice/:#' /etc/passwd
capture kivctl start alice
same status 0 "$status"
same stderr "/home/alice/: Too many levels of symbolic links" "$err"
same "mounts" $'/\n/dev/pts\n/proc\n/run' "$(enter_as_root alice awk '{print $5}' /proc/self/mountinfo)"
EOF
}

@test "a home that is a file is reported when it is written with a slash at its end" {
    in_host <<'EOF'
account alice 100.64.0.4/30
rm -r /home/alice
touch /home/alice
sed -i 's#:/home/alice:#:/home/alice/:#' /etc/passwd
capture kivctl start alice
same status 0 "$status"
same stderr "/home/alice/: Not a directory" "$err"
EOF
}
