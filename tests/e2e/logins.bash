# Functions of the tests that log in to accounts through PAM; sourced on the simulated host after
# on_host.bash.

# shellcheck source=tests/e2e/system_log.bash
source "$project/tests/e2e/system_log.bash"

# shellcheck disable=SC2034 # for the tests
programs=$(dirname "$KIVCTL")/../tests/e2e/programs
# by a path without a blank, because PAM's files allow none
ln -sfn "$(realpath "$(dirname "$KIVCTL")/../lib")" /usr/local/lib/modules
module=/usr/local/lib/modules/security/pam_kiv.so

# pam_service NAME [OPTION…]: writes the service as the shipped profile and the host's own file
# configure it, but without passwords.
pam_service() {
    cat >"/etc/pam.d/$1" <<END
auth required pam_permit.so
account required pam_permit.so
account required $module ${*:2}
session required pam_loginuid.so
session required pam_unix.so
session required $module ${*:2}
session required pam_limits.so
END
}

# two_containers: starts containers for alice and bob on a host with the sample configuration.
two_containers() {
    cp "$project/dist/kiv.conf" "$configuration"
    account alice 100.64.0.4/30
    account bob 100.64.0.8/30
    kivctl start -a >/dev/null 2>&1
}

# serve_ssh [LINE…]: starts a server for accounts that accept root's key, with further lines for its
# configuration. The functions ssh, sftp, scp, rsync and git reach it as user@host.
serve_ssh() {
    local name
    mkdir -p /run/sshd ~/.ssh /tmp/ssh
    ssh-keygen -q -t ed25519 -N '' -f /tmp/ssh/host_key
    ssh-keygen -q -t ed25519 -N '' -f /tmp/ssh/key
    for name in alice bob; do
        install -d -m 0700 -o "$name" -g "$name" "/home/$name/.ssh"
        install -m 0600 -o "$name" -g "$name" /tmp/ssh/key.pub "/home/$name/.ssh/authorized_keys"
    done
    install -D -m 0600 /tmp/ssh/key.pub /root/.ssh/authorized_keys
    {
        printf '%s\n' 'Port 22' 'ListenAddress 127.0.0.1' 'HostKey /tmp/ssh/host_key' 'UsePAM yes' 'PermitRootLogin yes' \
            'PasswordAuthentication no' 'LogLevel VERBOSE' 'PidFile /tmp/ssh/pid' 'PrintMotd no' \
            'Subsystem sftp /usr/lib/openssh/sftp-server'
        printf '%s\n' "$@"
    } >/tmp/ssh/sshd_config
    cat >~/.ssh/config <<'END'
Host *
    HostName 127.0.0.1
    IdentityFile /tmp/ssh/key
    StrictHostKeyChecking no
    UserKnownHostsFile /dev/null
    LogLevel ERROR
END
    chmod 600 ~/.ssh/config
    /usr/sbin/sshd -f /tmp/ssh/sshd_config -E /tmp/ssh/log
    eventually test -s /tmp/ssh/pid # sshd writes it when it listens
}

# where PID…: prints the namespaces of each process in one line.
where() {
    local pid
    for pid; do
        readlink "/proc/$pid/ns/net" "/proc/$pid/ns/ipc" "/proc/$pid/ns/mnt" | xargs
    done
}

# pinned_for NAME: prints the namespaces of the account's container, in the same form.
pinned_for() {
    local kind
    for kind in net ipc mnt; do
        echo "$kind:[$(stat -Lc %i "/run/kiv/$1@$kind")]"
    done | xargs
}

# all_inside NAME: there are processes with the account's user ID, and each is inside, filtered and without
# capabilities. CAP_NET_RAW is what the sample configuration leaves in the bounding set.
all_inside() {
    local pid wanted state
    pgrep --uid "$1" >/dev/null
    wanted=$(pinned_for "$1")
    for pid in $(pgrep --uid "$1"; pgrep --euid "$1"); do
        same "namespaces of $(tr '\0' ' ' <"/proc/$pid/cmdline")" "$wanted" "$(where "$pid")"
        state=$(grep -E '^(Cap|Seccomp:)' "/proc/$pid/status")
        same "rights of $(tr '\0' ' ' <"/proc/$pid/cmdline")" "CapInh:	0000000000000000
CapPrm:	0000000000000000
CapEff:	0000000000000000
CapBnd:	0000000000002000
CapAmb:	0000000000000000
Seccomp:	2" "$state"
        same "cgroup of $pid" "0::/user.slice/user-$(id -u "$1").slice/kiv" "$(grep ^0: "/proc/$pid/cgroup")"
    done
}

# kivctl_installed: puts kivctl where the module searches for it.
kivctl_installed() {
    local prefix
    prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:[A-Z]*=//p' "$(dirname "$KIVCTL")/../CMakeCache.txt")
    mkdir -p "$prefix/sbin"
    ln -sf "$(command -v kivctl)" "$prefix/sbin/kivctl"
}
