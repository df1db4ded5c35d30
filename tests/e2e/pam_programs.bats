#!/usr/bin/env bats
# Accounts that come by cron, su, login and sudo's way of opening sessions.
load helpers

setup() {
    export project
}

@test "cron's jobs of an account run inside, and other users' outside" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service cron
useradd --create-home carol
find /etc/cron.d /var/spool/cron/crontabs -mindepth 1 -delete
: >/etc/crontab
look='readlink /proc/self/ns/net /proc/self/ns/ipc /proc/self/ns/mnt | xargs >~/where; sleep 600 & touch ~/ran'
for name in alice bob carol; do
    echo "* * * * * $look" | crontab -u "$name" -
done
library=$(echo /usr/lib/*/faketime/libfaketime.so.1)
LD_PRELOAD=$library FAKETIME="+0 x60" cron -f </dev/null >/tmp/cron 2>&1 &
for name in alice bob carol; do
    eventually test -e "/home/$name/ran"
done
same "alice's job" "$(pinned_for alice)" "$(cat /home/alice/where)"
same "bob's job" "$(pinned_for bob)" "$(cat /home/bob/where)"
same "carol's job" "$(where $$)" "$(cat /home/carol/where)"
all_inside alice
all_inside bob
EOF
}

@test "su enters the container, and its waiting parent can end the command" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service su
pam_service su-l
cd /usr/share
same su "/usr/share alice $(pinned_for alice)" "$(su alice -c 'echo $PWD $(id -un) \
    $(readlink /proc/self/ns/{net,ipc,mnt})')"
same "su -" "/home/alice" "$(su - alice -c pwd)"
su - alice -c 'setsid --fork sleep 602'
all_inside alice
pkill --uid alice sleep
fails 5 su alice -c 'exit 5'
same "directories that root has open" "" "$(su alice -c 'find -L /proc/self/fd -mindepth 1 -maxdepth 1 -type d \
    ! -path "*/fd/[0-2]" -printf "%l\n" | grep -v "^/proc" || true' 7</ 8</run/kiv)"
su alice -c 'echo $$ >~/pid; exec sleep 600' 2>/dev/null &
parent=$!
eventually test -s /home/alice/pid
all_inside alice
kill -TERM "$parent"
fails 143 wait "$parent" 2>/dev/null
ended() { [ ! -d "/proc/$(cat /home/alice/pid)" ]; }
eventually ended
kivctl stop bob >/dev/null
capture su bob -c id
same stopped "1 Your account's container is not running. Ask the administrator of this host." "$status $out$(head -n 1 <<<"$err")"
EOF
}

@test "su --pty gives a terminal of the container" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service su
"$project/tests/e2e/on_terminal" su --pty alice -c 'tty; stat -c %U $(tty)' </dev/null >/tmp/seen
grep -qE '^/dev/pts/[0-9]+$' /tmp/seen
EOF
}

@test "login on a terminal is inside" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service login
"$project/tests/e2e/on_terminal" login -f alice >/tmp/seen <<'END'
expect \$ 
type setsid --fork sleep 600; echo $(readlink /proc/self/ns/net) $(id -un) done\n
expect alice done
type exit\n
END
all_inside alice
grep -qF "net:[$(stat -Lc %i /run/kiv/alice@net)] alice done" /tmp/seen
EOF
}

@test "vsftpd's process of an account is inside" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service vsftpd
printf '%s\n' listen=YES background=NO local_enable=YES anonymous_enable=NO pam_service_name=vsftpd session_support=YES \
    isolate_network=NO secure_chroot_dir=/run/vsftpd seccomp_sandbox=NO >/tmp/vsftpd.conf
mkdir -p /run/vsftpd
vsftpd /tmp/vsftpd.conf &
log_in() { exec 3<>/dev/tcp/127.0.0.1/21; }
eventually log_in 2>/dev/null
printf 'USER alice\r\nPASS any\r\nPWD\r\n' >&3
while read -r -t 30 line <&3 && [[ $line != 257* ]]; do :; done
same "where alice is" '257 "/home/alice"' "$(cut -c -17 <<<"$line")"
same "processes of alice" 1 "$(pgrep --uid alice --count)"
all_inside alice
EOF
}
