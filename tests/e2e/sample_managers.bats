#!/usr/bin/env bats
# D-Bus and systemd start programs for anyone who asks. From a container with the sample
# configuration neither an account nor root without capabilities reaches them. tests/vm has the
# cases that need a booted systemd.
load helpers

setup() {
    export sample="$project/dist/kiv.conf"
}

# bus: starts Debian's daemon on the system bus's address and on an abstract one. A call of a
# service makes the host start a program, also for the two managers, which do not run here.
bus() {
    local service
    mkdir -p /run/dbus /run/systemd/system /tmp/services # the second one makes a host count as booted with systemd
    for service in example.Service org.freedesktop.login1 org.freedesktop.systemd1; do
        printf '%s\n' "[D-BUS Service]" "Name=$service" "Exec=/bin/sh -c 'echo $service >>/tmp/started; exit 1'" \
            >"/tmp/services/$service.service"
    done
    cat >/tmp/bus.conf <<'END'
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-BUS Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>unix:path=/run/dbus/system_bus_socket</listen>
  <listen>unix:abstract=/host/bus</listen>
  <auth>EXTERNAL</auth>
  <servicedir>/tmp/services</servicedir>
  <policy context="default">
    <allow user="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
</busconfig>
END
    dbus-daemon --config-file=/tmp/bus.conf --nofork </dev/null >/tmp/bus 2>&1 &
    eventually test -S /run/dbus/system_bus_socket
}

# calls: prints commands that ask the managers through each address; the last two are systemd's own
# programs.
calls() {
    local call=" --print-reply --dest=example.Service / org.freedesktop.DBus.Peer.Ping"
    echo "dbus-send --system $call"
    echo "dbus-send --bus=unix:abstract=/host/bus $call"
    echo "loginctl enable-linger"
    echo "systemd-run true"
}

# managed_host: starts alice's container; her home has a set-user-ID root shell.
managed_host() {
    account alice 100.64.0.4/30
    cp "$sample" "$configuration"
    bus
    kivctl start alice
    chmod 711 /home/alice
    install -m 4755 /usr/bin/dash /home/alice/left-behind
}

# tried COMMAND…: runs each call in the command's shell and prints which service the host has
# started.
tried() {
    local call
    while read -r call; do
        rm -f /tmp/started
        "$@" <<<"timeout 10 $call" >>/tmp/said 2>&1 || true
        echo "${call%% *}: $(cat /tmp/started 2>/dev/null || echo nothing)"
    done < <(calls)
}

outside() { runuser -u alice -- bash; }

inside() { kivctl exec alice; }

inside_as_root() { kivctl exec alice <<<"./left-behind -pc 'id -u; $(cat)'"; }
export -f bus calls managed_host tried outside inside inside_as_root

@test "the host's D-Bus starts services for an account outside of a container" {
    in_host <<'SCRIPT'
managed_host
same "what is started" "dbus-send: example.Service
dbus-send: example.Service
loginctl: org.freedesktop.login1
systemd-run: org.freedesktop.systemd1" "$(tried outside)"
SCRIPT
}

@test "nobody in a container can start a service of the host through D-Bus, loginctl or systemd-run" {
    in_host <<'SCRIPT'
managed_host
nothing="dbus-send: nothing
dbus-send: nothing
loginctl: nothing
systemd-run: nothing"
same "what is started for the account" "$nothing" "$(tried inside)"
same "what is started for root without capabilities" "$nothing" "$(tried inside_as_root)"
same "how often that was root" 4 "$(grep -cx 0 /tmp/said)"
SCRIPT
}
