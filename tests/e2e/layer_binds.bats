#!/usr/bin/env bats
# The configured bind mounts of a container, and which links in their paths are followed.
load helpers

@test "a bound file is the host's file itself" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /opt/site
mount -t tmpfs site /opt/site
echo first >/opt/site/file
printf '%s\n' bind "    /opt/site/file" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same content first "$(enter alice cat /opt/site/file)"
echo second >/opt/site/file
same content second "$(enter alice cat /opt/site/file)"
EOF
}

@test "a bound directory is the host's directory itself, also on another file system" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /opt/site
mount -t tmpfs -o mode=1777 site /opt/site
echo first >/opt/site/file
printf '%s\n' bind "    /opt/site" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
enter alice touch /opt/site/made-inside
touch /opt/site/made-outside
same "what the account sees" $'file\nmade-inside\nmade-outside' "$(enter alice ls -A /opt/site)"
same "what the host has" "$(enter alice ls -A /opt/site)" "$(ls -A /opt/site)"
EOF
}

@test "under a bound file's mount is an empty file of mode 640, under a bound directory's one like the host's" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /opt/site
mount -t tmpfs -o mode=750 site /opt/site
echo content >/opt/site/file
install -d -o daemon -g mail -m 1711 /opt/site/directory
printf '%s\n' bind "    /opt/site/file" "    /opt/site/directory" >"$configuration"
kivctl start alice
enter_as_root alice umount /opt/site/file /opt/site/directory
same "what was below" "/opt/site directory 750 0:0
/opt/site/file regular empty file 640 0:0
/opt/site/directory directory 1711 $(stat -c %u:%g /opt/site/directory)" \
    "$(enter_as_root alice stat -c '%n %F %a %u:%g' /opt/site /opt/site/file /opt/site/directory)"
EOF
}

@test "a missing bound path is skipped silently" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/file
printf '%s\n' bind "    /srv/not-there" "    /srv/not/there/either" "    /srv/file" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
enter_as_root alice mountpoint -q /srv/file
refused enter_as_root alice test -e /srv/not-there
refused enter_as_root alice test -e /srv/not
EOF
}

@test "in debug mode a missing bound path is reported by the layer and by the mount" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf '%s\n' bind "    /srv/not-there" >"$configuration"
capture kivctl -d start alice
same status 0 "$status"
same stderr "/srv/not-there: cannot prepare bind-mount: No such file or directory
bind-mount(/srv/not-there) failed: No such file or directory" "$err"
EOF
}

@test "a bound path below a file is reported even without debug mode" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/file
printf '%s\n' bind "    /srv/file/below" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "/srv/file/below: cannot prepare bind-mount: Not a directory
bind-mount(/srv/file/below) failed: Not a directory" "$err"
EOF
}

@test "binds are mounted in the order of the configuration" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/{one,two}/inner
for name in one two; do
    mount -t tmpfs inner "/srv/$name/inner"
    touch "/srv/$name/inner/file"
done
printf '%s\n' bind "    /srv/one" "    /srv/one/inner" "    /srv/two/inner" "    /srv/two" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "outer first" file "$(enter alice ls -A /srv/one/inner)"
same "inner first, and covered" "" "$(enter alice ls -A /srv/two/inner)"
EOF
}

@test "a bound directory comes without what is mounted below it" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site/inner
touch /srv/site/inner/covered
mount -t tmpfs inner /srv/site/inner
touch /srv/site/inner/file
printf '%s\n' bind "    /srv/site" >"$configuration"
kivctl start alice
same "what the account sees" covered "$(enter alice ls -A /srv/site/inner)"
EOF
}

@test "a path that is bound twice is mounted twice without a message" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /srv/site
printf '%s\n' bind "    /srv/site" "    /srv/site" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "number of mounts" 2 "$(enter_as_root alice grep -c ' /srv/site /srv/site ' /proc/self/mountinfo)"
EOF
}

@test "in an emptied directory a bound path is the only name" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site/{kept,other}
touch /srv/site/kept/file
printf '%s\n' empty "    /srv/site" bind "    /srv/site/kept" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what root sees inside" $'/srv/site\n/srv/site/kept\n/srv/site/kept/file' "$(enter_as_root alice find /srv/site)"
EOF
}

@test "a hidden file that is bound too is reported and stays hidden" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/file
printf '%s\n' hide "    /srv/file" bind "    /srv/file" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "touch(/mnt/kiv/srv/file) for bind-mount failed: No such device or address" "$err"
refused enter_as_root alice test -e /srv/file
EOF
}

@test "a hidden directory that is bound too stays hidden" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /srv/site
printf '%s\n' hide "    /srv/site" bind "    /srv/site" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
refused enter_as_root alice test -e /srv/site
EOF
}

@test "a directory of the host's /run can be bound if the container's own /run has it" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /run/mysqld
touch /run/mysqld/mysqld.sock
touch /run/other
printf '%s\n' bind "    /run/mysqld" "    /run/other" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "what root sees inside" $'/run\n/run/mysqld\n/run/mysqld/mysqld.sock\n/run/utmp' \
    "$(enter_as_root alice find /run | sort)"
EOF
}

@test "a bound link of root shows its target" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /run/resolver/deeper
echo "nameserver 192.0.2.1" >/run/resolver/deeper/stub.conf
ln -s deeper/stub.conf /run/resolver/resolv.conf
ln -sf ../run/resolver/resolv.conf /etc/resolv.conf
printf '%s\n' bind "    /etc/resolv.conf" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same content "nameserver 192.0.2.1" "$(enter alice cat /etc/resolv.conf)"
same "kind of file" "regular file" "$(enter alice stat -c %F /etc/resolv.conf)"
EOF
}

@test "a bound path may pass through links of root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /run/service /opt/real/site
echo socket >/run/service/file
ln -s /opt/real /srv/absolute
touch /opt/real/site/file
same "the host's /var/run" /run "$(readlink -f /var/run)"
printf '%s\n' bind "    /var/run/service" "    /srv/absolute/site" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same content socket "$(enter alice cat /var/run/service/file)"
enter alice test -e /srv/absolute/site/file
EOF
}

@test "a bound path never passes through an account's link" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -d -o alice /srv/alices /srv/secret
echo secret >/srv/secret/file
ln -s /srv/secret /srv/alices/site
ln -s /srv/secret/file /srv/alices/file
chown -h alice /srv/alices/{site,file}
printf '%s\n' hide "    /srv/secret" bind "    /srv/alices/site" "    /srv/alices/file" \
    "    /srv/alices/site/file" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "bind-mount(/srv/alices/site) failed: Too many levels of symbolic links
bind-mount(/srv/alices/file) failed: Too many levels of symbolic links
bind-mount(/srv/alices/site/file) failed: Too many levels of symbolic links" "$err"
same "what root can read inside" "" \
    "$(enter_as_root alice bash -c 'cat /srv/alices/{site,file,site/file}' 2>/dev/null || true)"
EOF
}

@test "a loop of links ends with a report" {
    in_host <<'EOF'
account alice 100.64.0.4/30
ln -s loop /srv/loop
printf '%s\n' bind "    /srv/loop" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "/srv/loop: cannot prepare bind-mount: Too many levels of symbolic links
bind-mount(/srv/loop) failed: Too many levels of symbolic links" "$err"
EOF
}

@test "a link in the account's home leads no bind mount out of the container's root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -d -o alice /home/alice/site /srv/site
touch /srv/site/file
printf '%s\n' bind "    /home/alice/site" >"$configuration"
rmdir /home/alice/site
ln -s /etc /home/alice/site
chown -h alice /home/alice/site
capture kivctl start alice
same status 0 "$status"
same stderr "bind-mount(/home/alice/site) failed: Too many levels of symbolic links" "$err"
same "mounts of it" "" "$(enter_as_root alice grep -E ' (/home/alice/site|/etc) ' /proc/self/mountinfo || true)"
EOF
}

@test "a link in the account's tmp directory leads no bind mount to another place" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /tmp/service
ln -s /etc /home/alice/tmp/service
chown -h alice /home/alice/tmp/service
printf '%s\n' bind "    /tmp/service" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "bind-mount(/tmp/service) failed: Too many levels of symbolic links" "$err"
enter alice test -e /etc/passwd
same "mounts of it" "" "$(enter_as_root alice grep -E ' (/tmp/service|/etc) ' /proc/self/mountinfo || true)"
EOF
}

@test "a bound path with two dots is mounted although renames on the machine make openat2 fail" {
    in_host <<'EOF'
account alice 100.64.0.4/30
sed -i 's#:/home/alice:#::#' /etc/passwd
mkdir /srv/site
printf '%s\n' bind "    /srv/site/../site" >"$configuration"
injected openat2:error=EAGAIN:when=1..99 kivctl start alice
same status 0 "$status"
same stderr "" "$err"
enter_as_root alice mountpoint -q /srv/site
kivctl stop alice
injected openat2:error=EAGAIN:when=1..100 kivctl start alice
same status 0 "$status"
same "stderr after a hundred tries" \
    "bind-mount(/srv/site/../site) failed: Resource temporarily unavailable" "$err"
refused enter_as_root alice mountpoint -q /srv/site
EOF
}

@test "a blank line among the bound paths is reported as the mount of an empty path" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /srv/site
printf '%s\n' bind "    " "    /srv/site" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "bind-mount() failed: Invalid argument" "$err"
enter_as_root alice mountpoint -q /srv/site
kivctl stop alice
capture kivctl -d start alice
same "stderr of -d" ": cannot prepare bind-mount: No such file or directory
bind-mount() failed: Invalid argument" "$err"
EOF
}

@test "a bound path that is the new root is refused, however it is written" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /srv/site
for path in / // . /srv/.. /./ /proc/..; do
    printf '%s\n' bind "    $path" "    /srv/site" >"$configuration"
    capture kivctl start alice
    same "status of $path" 0 "$status"
    same "stderr of $path" "bind-mount($path) failed: Device or resource busy" "$err"
    same "mounts with $path" $'/\n/dev/pts\n/home/alice\n/proc\n/run\n/srv/site\n/tmp' \
        "$(enter_as_root alice awk '{print $5}' /proc/self/mountinfo | sort)"
    same "the shell's own" alice "$(enter alice id -un)"
    kivctl stop alice
done
EOF
}

@test "without openat2 bound paths with two dots are mounted, and those that mean the new root are refused" {
    for error in ENOSYS EPERM; do
        export error
        in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/{site,other}
printf '%s\n' bind "    /srv/.." "    /srv/other/./../site" "    /srv/../../srv" >"$configuration"
injected "openat2:error=$error" kivctl start alice
same status 0 "$status"
same stderr "bind-mount(/srv/..) failed: Device or resource busy
bind-mount(/srv/../../srv) failed: Invalid cross-device link" "$err"
enter_as_root alice mountpoint -q /srv/site
refused enter_as_root alice mountpoint -q /srv
EOF
    done
}

@test "an emptied path of proc that is the new root is refused" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf '%s\n' empty "    /proc/.." "    /proc/irq" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "mount(/proc/..) failed: Device or resource busy" "$err"
same "what root sees inside" "" "$(enter_as_root alice ls -A /proc/irq)"
enter alice test -e /etc/passwd
EOF
}
