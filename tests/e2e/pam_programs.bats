#!/usr/bin/env bats
# Accounts that enter through cron, su, sudo, login and an FTP server; a program with threads.
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

@test "sudo enters the container, whoever calls it, and its waiting parent can end the command" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --create-home carol
pam_service sudo
pam_service sudo-i
install -m 0440 /dev/stdin /etc/sudoers <<<$'root ALL=(ALL:ALL) NOPASSWD: ALL\ncarol ALL=(ALL:ALL) NOPASSWD: ALL\nDefaults !use_pty'
cd /usr/share
look='echo $PWD $(id -un) $(readlink /proc/self/ns/net /proc/self/ns/ipc /proc/self/ns/mnt)'
same "by root" "/usr/share alice $(pinned_for alice)" "$(sudo -u alice sh -c "$look")"
same "by carol" "/usr/share bob $(pinned_for bob)" "$(setpriv --reuid carol --regid carol --init-groups sudo -u bob sh -c "$look")"
same "a login shell" "/home/alice alice $(pinned_for alice)" "$(sudo -i -u alice eval "$look")"
same "for root" "/usr/share root $(where $$)" "$(setpriv --reuid carol --regid carol --init-groups sudo sh -c "$look")"
fails 5 sudo -u alice sh -c 'exit 5'
sudo -u alice sleep 600 &
parent=$!
runs() { [ "$(pgrep --uid alice sleep --count)" = 1 ]; }
eventually runs
all_inside alice
kill -TERM "$parent"
fails 143 wait "$parent"
same "processes of alice" "" "$(pgrep --uid alice || true)"
kivctl stop bob >/dev/null
capture sudo -u bob id
same stopped "1 " "$status $out"
[[ $err == *"Operation not permitted" ]]
EOF
}

@test "with use_pty the command of sudo gets a terminal of sudo, not the caller's" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sudo
install -m 0440 /dev/stdin /etc/sudoers <<<$'root ALL=(ALL:ALL) NOPASSWD: ALL\nDefaults use_pty'
cat >/usr/local/bin/terminals <<'END'
#!/bin/sh
ls -l /proc/self/fd/0 /dev/tty
stat -Lc "number %r" /proc/self/fd/0
END
chmod 755 /usr/local/bin/terminals
"$project/tests/e2e/on_terminal" bash -c 'stat -Lc "number %r" /proc/self/fd/0; sudo -u alice /usr/local/bin/terminals' </dev/null >/tmp/seen
same "different ones" 2 "$(grep -a ^number /tmp/seen | sort -u | wc -l)"
EOF
}

# log_in_on_terminal NAME: logs in with login(1), looks around and logs out.
log_in_on_terminal() {
    "$project/tests/e2e/on_terminal" login -f "$1" >/tmp/seen <<END
expect \\$ 
type setsid --fork sleep 600 </dev/null >/dev/null 2>&1; echo \$(readlink /proc/self/ns/net) \$(id -un) done\\n
expect $1 done
type exit\\n
END
}
export -f log_in_on_terminal

@test "login on a terminal is inside, except that Debian 13's finds no terminal there and ends" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --create-home --shell /bin/bash carol
pam_service login
log_in_on_terminal carol
grep -qF "$(readlink /proc/self/ns/net) carol done" /tmp/seen
if login --version 2>&1 | grep -q util-linux; then
    "$project/tests/e2e/on_terminal" login -f alice </dev/null >/tmp/seen
    same "shown" "" "$(cat /tmp/seen)"
    same "processes of alice" "" "$(pgrep --uid alice || true)"
else
    log_in_on_terminal alice
    all_inside alice
    grep -qF "net:[$(stat -Lc %i /run/kiv/alice@net)] alice done" /tmp/seen
fi
EOF
}

@test "vsftpd's processes of an account are inside, with the server's own sandbox and without" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service vsftpd
mkdir -p /run/vsftpd
# log_in: leaves the connection open as descriptor 3
log_in() { exec 3<>/dev/tcp/127.0.0.1/21; }
for sandbox in YES NO; do
    printf '%s\n' listen=YES background=NO local_enable=YES anonymous_enable=NO pam_service_name=vsftpd session_support=YES \
        isolate_network=NO secure_chroot_dir=/run/vsftpd write_enable=YES seccomp_sandbox=$sandbox >/tmp/vsftpd.conf
    vsftpd /tmp/vsftpd.conf &
    server=$!
    eventually log_in 2>/dev/null
    printf 'USER alice\r\nPASS any\r\nPWD\r\nMKD made-%s\r\n' "$sandbox" >&3
    answers=$(grep -m 2 '^257' <&3 | cut -d'"' -f 2 | xargs)
    same "where alice is and what she has made" "/home/alice /home/alice/made-$sandbox" "$answers"
    same "processes of alice" 1 "$(pgrep --uid alice --count)"
    all_inside alice
    same "owner" alice "$(stat -c %U "/home/alice/made-$sandbox")"
    exec 3>&-
    kill "$server"
    wait "$server" || true
done
EOF
}

@test "a program with several threads is in one function of the module at a time" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
useradd --create-home carol
pam_service login
sed -i -E "/permit|kiv/!d" /etc/pam.d/login
with_lock alice exclusive bash -c 'touch /tmp/held; until test -e /tmp/free; do sleep 0.01; done' &
eventually test -e /tmp/held
python3 >/tmp/seen <<'END'
import ctypes, os, threading, time
pam = ctypes.CDLL("libpam.so.0")
TALK = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_int, *[ctypes.c_void_p] * 3)
class Conversation(ctypes.Structure):
    _fields_ = [("talk", TALK), ("data", ctypes.c_void_p)]
conversation = Conversation(TALK(lambda *_: 19), None)  # PAM_CONV_ERR
def call(function, user):
    handle = ctypes.c_void_p()
    pam.pam_start(b"login", user, ctypes.byref(conversation), ctypes.byref(handle))
    function(handle, 0)
def opened(name):
    for number in os.listdir("/proc/self/fd"):
        try:
            if os.readlink("/proc/self/fd/" + number) == name:
                return True
        except OSError:
            pass  # closed meanwhile
    return False
first = threading.Thread(target=call, args=(pam.pam_acct_mgmt, b"alice"))
second = threading.Thread(target=call, args=(pam.pam_open_session, b"carol"))
first.start()
while first.is_alive() and not opened("/run/kiv/.lock"):
    time.sleep(0.01)
second.start()
second.join(1)
print("the second one waits:", second.is_alive())
open("/tmp/free", "w").close()
first.join()
second.join()
END
same "while alice's container is locked" "the second one waits: True" "$(cat /tmp/seen)"
EOF
}
