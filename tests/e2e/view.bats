#!/usr/bin/env bats
# The container's root as a whole: its mounts, writable paths, and visible processes and terminals.
load helpers

@test "the mounts of a container are its root, home, /tmp, terminals, /proc, /run and the configured ones" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site
mount -t tmpfs site /srv/site
printf '%s\n' empty "    /proc/irq" bind "    /srv/site" >"$configuration"
# file systems of the host that must not appear
mkdir -p /opt/other
mount -t tmpfs other /opt/other
kivctl start alice
# mount point, flags, type of file system, its own flags; values that depend on the machine are left
# out
mounts() {
    sed -E 's/ (master|shared):[0-9]+//; s/ - / /; s/(,redirect_dir|,index|,metacopy|,xino|,uuid)=[a-z]+//g; s/,inode64//' \
        /proc/self/mountinfo | awk '$5 ~ "^/(home|tmp)" { print $4, $5; next } { print $4, $5, $6, $7, $9 }'
}
export -f mounts
same "mounts" "/ / rw,relatime overlay ro,lowerdir=/mnt/kiv:/mnt/root
/home/alice /home/alice
/home/alice/tmp /tmp
/ /dev/pts rw,relatime devpts rw,mode=600,ptmxmode=000,max=64
/ /proc ro,relatime proc ro,hidepid=invisible
/empty-dir /proc/irq rw,relatime tmpfs rw
/ /run rw,nosuid,nodev,noexec,relatime tmpfs rw,size=1024k,mode=755
/ /srv/site rw,relatime tmpfs rw" "$(enter_as_root alice bash -c mounts)"
EOF
}

@test "mounts on the host's root are invisible, and the files below them are visible" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /opt/site
touch /opt/site/below
mount -t tmpfs site /opt/site
touch /opt/site/above
kivctl start alice
same "what the account sees" below "$(enter alice ls -A /opt/site)"
same "the host's cgroups and devices" "" "$(enter_as_root alice ls -A /sys)"
EOF
}

@test "only home, /tmp and the container's own /run are writable, also for root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
for directory in / /etc /home /usr/bin /var/tmp /mnt /dev /dev/shm /sys; do
    same "$directory for root" "touch: cannot touch '$directory/probe': Read-only file system" \
        "$(enter_as_root alice touch "$directory/probe" 2>&1 || true)"
done
same "settings of the kernel" "bash: line 1: /proc/sys/kernel/domainname: Read-only file system" \
    "$(enter_as_root alice bash -c 'echo probe >/proc/sys/kernel/domainname' 2>&1 || true)"
refused enter alice touch /run/probe
enter_as_root alice touch /run/probe
refused test -e /run/probe
EOF
}

@test "the container's /run has a directory for a database's socket, a session file, and a size of at most 1 MB" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
same "what root sees inside" "/run directory 755 0:0
/run/mysqld directory 755 0:0
/run/utmp regular empty file 644 0:$(getent group utmp | cut -d: -f3)" \
    "$(enter_as_root alice bash -c 'stat -c "%n %F %a %u:%g" /run /run/*')"
refused enter_as_root alice dd if=/dev/zero of=/run/file bs=1K count=1025 status=none
same "size of what fits" $((1024 * 1024)) "$(enter_as_root alice stat -c %s /run/file)"
EOF
}

@test "on a host without the group utmp the session file belongs to root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
sed -i /^utmp:/d /etc/group
capture kivctl start alice
same stderr "" "$err"
same "owner of the file" "0:0 644" "$(enter_as_root alice stat -c '%u:%g %a' /run/utmp)"
EOF
}

@test "an account sees only its own processes" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a 2>/dev/null
enter alice sleep 1000 &
enter bob sleep 1001 &
setpriv --reuid alice --regid alice --clear-groups sleep 1002 &
sleep 1003 &
sleepers() { ps -C sleep -o args= | sort; }
export -f sleepers
for ((try = 0; try < 500; try++)); do
    [ "$(sleepers | wc -l)" != 4 ] || break
    sleep 0.01 # sleep is itself one of them while it runs
done
owners() { stat -c %U /proc/[0-9]* 2>/dev/null | sort -u; }
export -f owners
same "what alice sees" $'sleep 1000\nsleep 1002' "$(enter alice bash -c sleepers)"
same "what bob sees" "sleep 1001" "$(enter bob bash -c sleepers)"
same "whose processes alice sees" alice "$(enter alice bash -c owners)"
refused enter alice test -e /proc/1
enter_as_root alice test -e /proc/1
EOF
}

@test "a container has its own terminals, at most 64" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
# shellcheck disable=SC2034 # kept open
exec {hosts}<>/dev/ptmx
test -e /dev/pts/0
same "what the account sees" ptmx "$(enter alice ls /dev/pts)"
same "a terminal of the account's" $'/dev/pts/0\r' "$(enter alice script -qec tty /dev/null)"
same "how many can be opened" "64 No space left on device" \
    "$(enter alice perl -e 'my @t; while (open(my $t, "+<", "/dev/ptmx")) { push @t, $t } print scalar(@t), " $!"')"
EOF
}

@test "set-user-ID programs of the host work in a container" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -m 4755 "$(command -v id)" /usr/local/bin/whose
kivctl start alice
same "effective user" 0 "$(enter alice /usr/local/bin/whose -u)"
EOF
}

@test "the runtime directory and the set-up are invisible in a container" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a 2>/dev/null
for name in alice bob; do
    same "/mnt of $name" "" "$(enter_as_root "$name" ls -A /mnt)"
    refused enter_as_root "$name" test -e /run/kiv
    same "root of $name" "1" "$(enter_as_root "$name" awk '$5 == "/"' /proc/self/mountinfo | wc -l)"
done
EOF
}

@test "mounts in a container do not propagate to the host or another container" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
mkdir /srv/site
printf '%s\n' bind "    /srv/site" >"$configuration"
kivctl start -a 2>/dev/null
before=$(cat /proc/self/mountinfo)
inBob=$(enter_as_root bob cat /proc/self/mountinfo)
for path in /home/alice /tmp /srv/site /run; do
    enter_as_root alice mount -t tmpfs probe "$path"
done
same "the host's mounts" "$before" "$(cat /proc/self/mountinfo)"
same "bob's mounts" "$inBob" "$(enter_as_root bob cat /proc/self/mountinfo)"
EOF
}

@test "the sample configuration shows an account its own home and none of the host's secrets" {
    export sample=$project/dist/kiv.conf
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
mkdir -p /var/log /var/spool/cron /var/backups
touch /etc/shadow /root/file /home/bob/file
cp "$sample" "$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "homes" alice "$(enter_as_root alice ls -A /home)"
for path in /etc/shadow /etc/tarnwell /root /home/bob; do
    refused enter_as_root alice test -e "$path"
done
same "logs" "" "$(enter_as_root alice ls -A /var/log)"
EOF
}
