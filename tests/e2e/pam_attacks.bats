#!/usr/bin/env bats
# Attacks by an account that can log in: on the root processes that open its sessions, and through
# its own files.
load helpers

setup() {
    export project
}

@test "neither the account nor root without capabilities can access the server's processes from inside" {
    in_host <<'EOF'
source "$project/tests/e2e/attacks.bash"
source "$project/tests/e2e/logins.bash"
two_accounts
pam_service sshd
pam_service su
serve_ssh
as_uid_0 watch_process
ssh alice@host sleep 600 &
runs() { pgrep --uid alice sleep >/dev/null; }
eventually runs
su alice -c 'exec sleep 601' &
parent=$!
runs() { [ "$(pgrep --uid alice sleep --count)" = 2 ]; }
eventually runs
# pidfd_open(2) shows only that the process exists
# shellcheck disable=SC2029 # the words are meant to be this shell's
tried() { ssh alice@host "./$1" "$2" | awk '$1 != "pidfd_open" { print $2 }' | sort -u | xargs; }
for pid in "$(pgrep --full 'sshd[^ ]*: alice \[priv\]' | head -n 1)" "$(pgrep --uid alice --full 'sshd[^ ]*: alice' | head -n 1)" \
    "$parent"; do
    same "the account, at $(tr '\0' ' ' <"/proc/$pid/cmdline")" "ENOENT EPERM" "$(tried watch_process "$pid")"
    same "uid 0, at $(tr '\0' ' ' <"/proc/$pid/cmdline")" "ENOENT EPERM" "$(tried watch_process_root "$pid")"
done
kill -TERM "$parent"
EOF
}

@test "between the opening of a session and the change of user no process inside can access the program" {
    in_host <<'EOF'
source "$project/tests/e2e/attacks.bash"
source "$project/tests/e2e/logins.bash"
two_accounts
pam_service login
as_uid_0 watch_process
as_uid_0
"$programs/open_session" -p login alice true &
held=$!
until grep -q '^State:.*stopped' "/proc/$held/status"; do sleep 0.01; done
same "it is inside" "$(pinned_for alice)" "$(where "$held")"
for program in watch_process watch_process_root; do
    same "$program" "ENOENT EPERM" "$(inside alice "./$program $held" </dev/null | awk '$1 != "pidfd_open" { print $2 }' |
        sort -u | xargs)"
done
same "signal" EPERM "$(inside alice './system_call native kill $1 9' "$held" </dev/null)"
kill -CONT "$held"
wait "$held"
EOF
}

@test "an account's own start-up files run inside, and none runs with rights" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
echo 'session required pam_env.so user_readenv=1' >>/etc/pam.d/sshd
serve_ssh 'PermitUserEnvironment yes'
# note NAME: prints a line of shell code that records who runs it, and leaves a process running
note() { echo "{ id -u; readlink /proc/\$\$/ns/net; grep CapEff /proc/\$\$/status; } | xargs >/home/alice/seen-$1; sleep 600 >/dev/null 2>&1 &"; }
note rc >/home/alice/.ssh/rc
note bashrc >/home/alice/.bashrc
note bash_env >/home/alice/bash_env
echo 'BASH_ENV=/home/alice/bash_env' >/home/alice/.ssh/environment
printf '%s\n' 'LD_PRELOAD DEFAULT=/home/alice/evil.so' 'PATH DEFAULT=/home/alice:/bin' >/home/alice/.pam_environment
# every process that loads it records that; a root process would record the host, or the container
printf '%s\n' '#include <stdio.h>' '#include <unistd.h>' '__attribute__((constructor)) static void load(void) {' \
    'FILE* file = fopen("/home/alice/loaded-by", "a"); if (file) fprintf(file, "%d\n", (int)geteuid()); }' >/tmp/evil.c
cc -shared -fPIC -o /home/alice/evil.so /tmp/evil.c
chown -R alice: /home/alice
ssh alice@host true
for name in rc bashrc; do
    same "$name" "$(id -u alice) net:[$(stat -Lc %i /run/kiv/alice@net)] CapEff: 0000000000000000" "$(cat "/home/alice/seen-$name")"
done
ssh alice@host 'sh -c "bash -c :; :"; :'
test -e /home/alice/seen-bash_env
same "who has loaded the library" "$(id -u alice)" "$(sort -u /home/alice/loaded-by)"
all_inside alice
EOF
}

@test "an inaccessible or missing home, and a missing shell, have the same results as on the host" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
pam_service su
serve_ssh "AuthorizedKeysFile /tmp/ssh/key.pub"
chmod 755 /tmp/ssh
chown root /home/alice
chmod 700 /home/alice
same "closed" "/ alice" "$(ssh alice@host 'echo $(pwd) $(id -un)' 2>/dev/null)"
mv /home/alice /home/elsewhere
same "moved away: a running container keeps it" "alice" "$(ssh alice@host 'id -un' 2>/dev/null)"
usermod --shell /bin/missing alice 2>/dev/null
fails 255 ssh alice@host true
fails 127 su alice -c true 2>/dev/null
usermod --shell /usr/sbin/nologin bob
capture ssh bob@host true
same nologin "1 This account is currently not available." "$status $out"
same "processes of the accounts" "" "$(pgrep --uid alice; pgrep --uid bob)"
EOF
}

@test "the account cannot insert input into a session's terminal, which nobody owns afterwards" {
    in_host <<'EOF'
source "$project/tests/e2e/attacks.bash"
source "$project/tests/e2e/logins.bash"
two_accounts
pam_service sshd
serve_ssh
same TIOCSTI EPERM "$(ssh -tt alice@host "./system_call native ioctl 0 0x5412 @:" </dev/null | tr -d '\r')"
ssh -tt alice@host 'trap "" HUP; (while :; do read -r line && echo "$line" >>~/read; sleep 0.1; done) & sleep 0.2' </dev/null
"$project/tests/e2e/on_terminal" ssh -tt alice@host cat <<'END' >/dev/null
type typed later\n
expect typed later\n.*typed later
type \x04
END
refused grep -q typed /home/alice/read
kivctl stop alice >/dev/null 2>&1 || true
EOF
}
