#!/usr/bin/env bats
# Accounts that log in through OpenSSH: where their sessions run, and what must work in them.
load helpers

setup() {
    export project
}

@test "every process of an ssh session is inside, including the server's own one for the user" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
serve_ssh
for name in alice bob; do
    ssh -N "$name@host" &
    ssh "$name@host" sleep 600 &
    ssh -tt "$name@host" 'sleep 601' </dev/null &
    three_sessions() { [ "$(pgrep --uid "$name" --count)" -ge 5 ]; }
    eventually three_sessions
    same "the server's processes" 3 "$(pgrep --uid "$name" sshd --count)"
    # root's three processes of the server are counted too
    same "processes of the slice" "$(($(pgrep --uid "$name" --count) + 3))" \
        "$(wc -l <"/sys/fs/cgroup/user.slice/user-$(id -u "$name").slice/kiv/cgroup.procs")"
    all_inside "$name"
done
same "root's session" "$(where $$)" "$(ssh root@host 'readlink /proc/self/ns/{net,ipc,mnt} | xargs')"
EOF
}

@test "ssh runs commands: one, several, from a here-document, in a pipe, with their status" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
serve_ssh
ssh alice@host 'echo one; pwd; ls /home; ls -d /etc/tarnwell 2>/dev/null || echo hidden' >/tmp/seen
same several $'one\n/home/alice\nalice\nhidden' "$(cat /tmp/seen)"
fails 7 ssh alice@host 'exit 7'
fails 3 ssh alice@host <<'END' >/tmp/seen
echo here
exit 3
END
same "here-document" here "$(tail -n 1 /tmp/seen)"
head -c 300000 /dev/urandom >/tmp/bytes
ssh alice@host cat </tmp/bytes >/tmp/bytes.back
cmp /tmp/bytes /tmp/bytes.back
same "its own terminal" "/dev/pts/0 alice" "$(ssh -tt alice@host 'echo $(tty) $(stat -c %U $(tty))' </dev/null | tr -d '\r')"
same "login shell" "yes" "$(ssh alice@host 'shopt -q login_shell && echo yes; exec -l bash -c "shopt -q login_shell && echo yes"')"
EOF
}

@test "sftp, scp, rsync and git copy files and trees in and out" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
serve_ssh
mkdir -p /tmp/tree/below
echo text >/tmp/tree/below/file
# bash(1) reads this file also for a command of ssh: each session notes where it runs and its rights
for name in alice bob; do
    cat >"/home/$name/.bashrc" <<'END'
echo "$(basename "${BASH_EXECUTION_STRING%% *}") $(readlink /proc/$$/ns/{net,ipc,mnt} | xargs) $(
    sed -nE 's/^(CapPrm|CapEff|CapBnd|Seccomp):\t//p' /proc/$$/status | xargs)" >>~/sessions
END
done
sftp -q -b - alice@host >/tmp/seen <<'END'
put -r /tmp/tree by-sftp
get by-sftp/below/file /tmp/sftp.back
ls -1 /home
END
same "what sftp sees of /home" /home/alice "$(tail -n 1 /tmp/seen)"
cmp /tmp/tree/below/file /tmp/sftp.back
for old in '' -O; do
    scp -q $old -r /tmp/tree "alice@host:by-scp$old"
    scp -q $old -r "alice@host:by-scp$old" "/tmp/scp$old"
    diff -r /tmp/tree "/tmp/scp$old"
done
rsync -a /tmp/tree/ bob@host:by-rsync
rsync -a bob@host:by-rsync/ /tmp/rsync
diff -r /tmp/tree /tmp/rsync
ssh bob@host git init -q --bare site.git
git clone -q bob@host:site.git /tmp/clone 2>/dev/null
cd /tmp/clone
git -c user.name=x -c user.email=x@example.org commit -q --allow-empty -m first
git push -q origin HEAD
same "commit" "$(git rev-parse HEAD)" "$(git ls-remote origin HEAD | cut -f1)"
same owners "alice bob" "$(stat -c %U /home/alice/by-sftp/below/file /home/bob/by-rsync/below/file | xargs)"
for name in alice bob; do
    same "where the sessions of $name ran, and their rights" \
        "$(pinned_for "$name") 0000000000000000 0000000000000000 0000000000002000 2" "$(cut -d' ' -f2- "/home/$name/sessions" | sort -u)"
done
same "alice's sessions" "scp sftp-server" "$(cut -d' ' -f1 /home/alice/sessions | sort -u | xargs)"
same "bob's sessions" "git git-receive-pack git-upload-pack rsync" "$(cut -d' ' -f1 /home/bob/sessions | sort -u | xargs)"
EOF
}

@test "forwarded ports end in the container's network, agents and X11 in the container" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
serve_ssh 'X11Forwarding yes'
socat TCP-LISTEN:8080,bind=127.0.0.1,fork,reuseaddr SYSTEM:'echo host' &
ssh alice@host 'exec perl -MIO::Socket::INET -e "
    \$s = IO::Socket::INET->new(LocalAddr => q(127.0.0.1:8080), Listen => 1) or die;
    open(my \$ready, q(>), q(ready)); while (\$c = \$s->accept) { print \$c qq(container\n); close \$c }"' &
eventually test -e /home/alice/ready
same "to the container's loopback" container "$(ssh -W 127.0.0.1:8080 alice@host </dev/null)"
same "the account's address" 192.0.2.2 "$(ssh -W 198.51.100.1:80 alice@host </dev/null)"
ssh -N -R 8081:127.0.0.1:8080 alice@host &
listens() { ssh alice@host 'cat </dev/tcp/127.0.0.1/8081' 2>/dev/null | grep -qx host; }
eventually listens
refused bash -c 'cat </dev/tcp/127.0.0.1/8081' 2>/dev/null
eval "$(ssh-agent -s)" >/dev/null
ssh-add -q /tmp/ssh/key
same "keys of the agent" "$(ssh-add -l)" "$(ssh -A alice@host ssh-add -l)"
same "the agent's socket" /home/alice/tmp "$(ssh -A alice@host 'dirname "${SSH_AUTH_SOCK/#\/tmp\//\/home\/alice\/tmp\/}" |
    xargs dirname')"
touch ~/.Xauthority
display=$(DISPLAY=127.0.0.1:7 ssh -Y alice@host 'echo $DISPLAY; xauth list | wc -l' 2>/dev/null)
same "display and its cookie" "localhost:10.0 1" "$(xargs <<<"$display")"
kill "$SSH_AGENT_PID"
EOF
}

@test "internal-sftp and ChrootDirectory work within the container" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
serve_ssh 'Match User bob' 'ForceCommand internal-sftp' 'ChrootDirectory /home' 'Match User alice' \
    'ForceCommand internal-sftp'
echo text >/tmp/file
sftp -q -b - alice@host <<<$'put /tmp/file\nls -1 /home' >/tmp/seen
same "what alice sees" /home/alice "$(tail -n 1 /tmp/seen)"
sftp -q -b - bob@host <<<$'cd /bob\nput /tmp/file\nls -1 /' >/tmp/seen
same "what bob sees" /bob "$(tail -n 1 /tmp/seen)"
cmp /tmp/file /home/bob/file
mkfifo /tmp/keys
sftp -q -b - alice@host </tmp/keys >/dev/null &
exec 9>/tmp/keys
serves() { pgrep --uid alice sshd >/dev/null; }
eventually serves
all_inside alice
exec 9>&-
EOF
}

@test "an account without its container cannot log in, and no process of it stays outside" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
serve_ssh
kivctl stop alice >/dev/null
capture ssh -o LogLevel=INFO alice@host echo in
same "what the user reads" "255  Your account's container is not running. Ask the administrator of this host." \
    "$status $out $(grep container <<<"$err")"
fails 255 timeout 30 ssh -N alice@host
same "a session for bob" bob "$(ssh bob@host id -un)"
sed -i "\|^account.*kiv|d" /etc/pam.d/sshd
fails 255 timeout 30 ssh -N alice@host
fails 255 ssh alice@host echo in
same "processes of alice" "" "$(pgrep --uid alice || true)"
EOF
}

@test "after a killed connection stop finds every process of the account" {
    in_host <<'EOF'
source "$project/tests/e2e/logins.bash"
two_containers
pam_service sshd
serve_ssh
ssh alice@host 'trap "" HUP; sleep 600 & nohup sleep 601 >/dev/null & wait' &
connection=$!
runs() { [ "$(pgrep --uid alice sleep --count)" = 2 ]; }
eventually runs
kill -KILL "$connection" "$(pgrep --full 'sshd[^ ]*: alice \[priv\]')"
all_inside alice
kivctl stop alice >/dev/null 2>&1 || kivctl stop alice >/dev/null
same "processes of alice" "" "$(pgrep --uid alice || true)"
EOF
}
