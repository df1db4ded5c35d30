# For scripts on a simulated host that need a systemd manager: a separate one, without the services
# of an installed Debian, in its own mount and PID namespaces.

# install_units: installs the units of the build and their programs at their usual paths. The
# accounts' programs are those under test.
install_units() {
    local shipped built helpers programs
    shipped=$(dirname "${BASH_SOURCE[0]}")/../../dist/systemd
    built=$(dirname "$KIVCTL")/../dist/systemd
    helpers=$(sed -n 's|^ExecStart=\(.*\)/all-accounts start .*|\1|p' "$built/kivctl.service")
    programs=$(sed -n 's|^ExecStart=.* --program \(.*\)/kivctl$|\1|p' "$built/kivctl.service")
    cp "$built"/*.service "$shipped"/*.{service,timer} /etc/systemd/system
    install -D -t "$helpers" "$shipped"/{account-limits,all-accounts,registry.bash}
    mkdir -p "$programs"
    ln -s "$(dirname "$KIVCTL")"/kiv* "$programs"
}

# start_manager: from now on systemctl is its client.
start_manager() {
    printf '%s\n' '[Unit]' 'DefaultDependencies=no' >/etc/systemd/system/few.target
    unshare --pid --fork --kill-child --mount --mount-proc env container=simulated \
        /lib/systemd/systemd --unit=few.target </dev/null >/dev/null 2>&1 3>&- &
    eventually pgrep --exact systemd >/dev/null
    # its children have its name, too, until they execute something else
    manager=$(pgrep --oldest --exact systemd)
    manager_is_ready() { systemctl --quiet is-active few.target 2>/dev/null; }
    eventually manager_is_ready
}

# managed COMMAND…: runs the command in the manager's mount namespace, where the containers are that
# it has started.
managed() { nsenter --target "$manager" --pid --mount "$@"; }

systemctl() { managed systemctl "$@"; }
