#!/usr/bin/env bats
# The sample configuration: everyday work succeeds in a shell, and the host's secrets are invisible.
load helpers

setup() {
    export sample="$project/dist/kiv.conf" sample_registry="$project/dist/kiv.users"
}

# sampled_account: creates alice on a host with the sample configuration.
sampled_account() {
    account alice 100.64.0.4/30
    cp "$sample" "$configuration"
    capture kivctl start alice
    same status 0 "$status"
    same stderr "" "$err"
}
export -f sampled_account

@test "a container starts without a warning even if the host lacks listed paths" {
    in_host <<'SCRIPT'
sampled_account
same "what a shell says" "alice" "$(kivctl exec alice <<<'id -un' 2>&1)"
SCRIPT
}

@test "device nodes exist and work even if the root file system has none" {
    in_host <<'SCRIPT'
mount --bind / /mnt
find /mnt/dev -type c -delete
umount /mnt
sampled_account
kivctl exec alice >/tmp/seen <<'EOF'
cd /dev || exit
for name in full null random tty urandom zero; do [ -c $name ] && echo "$name $(stat -c %a $name)"; done
echo lost >/dev/null && head -c 3 /dev/zero | wc -c
head -c 8 /dev/urandom | wc -c
EOF
same "device nodes" "full 666
null 666
random 666
tty 666
urandom 666
zero 666
3
8" "$(cat /tmp/seen)"
SCRIPT
}

@test "a program in the container gets a terminal of the container" {
    in_host <<'SCRIPT'
sampled_account
same terminal /dev/pts/0 "$(kivctl exec alice <<<'script --quiet --command tty /dev/null' | tr -d '\r')"
SCRIPT
}

@test "ping reaches the outside" {
    in_host <<'SCRIPT'
sampled_account
kivctl exec alice <<<'ping -c 1 -W 5 198.51.100.1' >/tmp/seen
grep '1 received' /tmp/seen >/dev/null
SCRIPT
}

@test "names are resolved as on the host, even if resolv.conf is a link into /run" {
    in_host <<'SCRIPT'
mkdir /run/resolver
echo "nameserver 192.0.2.53" >/run/resolver/resolv.conf
ln -sf ../run/resolver/resolv.conf /etc/resolv.conf
sampled_account
same resolv.conf "nameserver 192.0.2.53" "$(kivctl exec alice <<<'cat /etc/resolv.conf')"
SCRIPT
}

@test "the database is reached through its socket and its port" {
    in_host <<'SCRIPT'
install -d -m 755 /run/mysqld
socat UNIX-LISTEN:/run/mysqld/mysqld.sock,fork,mode=777 SYSTEM:'echo through the socket' &
until [ -S /run/mysqld/mysqld.sock ]; do sleep 0.01; done
sampled_account
same socket "through the socket" \
    "$(kivctl exec alice <<<'socat -u UNIX-CONNECT:/run/mysqld/mysqld.sock -')"
same port "small database server, caller" \
    "$(kivctl exec alice <<<'cat </dev/tcp/127.0.0.1/3306' | sed 's/ [0-9.]*$//')"
SCRIPT
}

@test "certificates are visible and keys are not" {
    in_host <<'SCRIPT'
mkdir -p /etc/ssl/certs /etc/ssl/private /etc/ssh /etc/letsencrypt
touch /etc/ssl/certs/one.pem /etc/ssl/private/key /etc/ssh/ssh_config /etc/ssh/ssh_host_ed25519_key \
    /etc/letsencrypt/key
sampled_account
kivctl exec alice >/tmp/seen <<'EOF'
ls /etc/ssl/certs/one.pem /etc/ssh/ssh_config
for path in /etc/ssl/private /etc/ssh/ssh_host_ed25519_key /etc/letsencrypt; do [ ! -e $path ] || echo $path; done
EOF
same "what is seen" "/etc/ssh/ssh_config
/etc/ssl/certs/one.pem" "$(cat /tmp/seen)"
SCRIPT
}

@test "passwords, the panel, the administrator's files and other accounts are invisible" {
    in_host <<'SCRIPT'
mkdir -p /opt/tarnwell /var/lib/tarnwell /var/lib/mysql /root /etc/sudoers.d /var/log /var/backups
touch /etc/shadow- /etc/gshadow- /etc/sudoers /var/log/syslog /var/backups/shadow.bak
echo bob:100000:65536 | tee /etc/subuid /etc/subuid- /etc/subgid >/etc/subgid-
account bob 100.64.0.8/30
sampled_account
kivctl exec alice >/tmp/seen <<'EOF'
for path in /etc/shadow /etc/shadow- /etc/gshadow /etc/gshadow- /etc/subuid /etc/subuid- /etc/subgid \
    /etc/subgid- /etc/sudoers /etc/sudoers.d /etc/tarnwell /opt/tarnwell /var/lib/tarnwell /var/lib/mysql \
    /root /boot; do [ ! -e $path ] || echo $path; done
ls -A /home /var/log /var/backups
getent passwd bob || true
EOF
same "what is seen" "/home:
alice

/var/backups:

/var/log:" "$(cat /tmp/seen)"
SCRIPT
}

@test "an account cannot reach the host's cron jobs" {
    in_host <<'SCRIPT'
install -m 755 /dev/null /usr/bin/crontab
mkdir -p /var/spool/cron
install -d -m 777 /var/spool/cron/crontabs
sampled_account
kivctl exec alice >/tmp/seen 2>&1 <<'EOF' || true
command -v crontab
touch /var/spool/cron/crontabs/alice
EOF
same "what a shell says" "touch: cannot touch '/var/spool/cron/crontabs/alice': Read-only file system" \
    "$(cat /tmp/seen)"
SCRIPT
}

@test "the kernel's interfaces to the hardware are empty" {
    in_host <<'SCRIPT'
sampled_account
same content "" "$(kivctl exec alice <<<'cd /proc; ls -A bus/. driver/. fs/. irq/. | grep -v : | grep .')"
SCRIPT
}

@test "the sample registry names no account" {
    in_host <<'SCRIPT'
cp "$sample" "$configuration"
cp "$sample_registry" "$registry"
capture kivctl start -a
same status 0 "$status"
same output "" "$out$err"
SCRIPT
}
