#!/usr/bin/env bats
# Upgrades of the host with dpkg and apt while containers run: what arrives inside, and when.
load helpers
export project

# apt_hook: installs the package's hook with the program's path in this build. Debian's debconf hook
# prints its own lines.
apt_hook() {
    rm -f /etc/apt/apt.conf.d/70debconf
    ln -sfn "$(dirname "$KIVCTL")" /usr/local/lib/programs # a path without a blank
    sed "s|[^ ]*/sbin/kiv-refresh|/usr/local/lib/programs/kiv-refresh|g" \
        "$(dirname "$(dirname "$KIVCTL")")/dist/apt/80kivctl" >/etc/apt/apt.conf.d/80kivctl
}

# upgrade_to VERSION: installs the package with apt, without a network. apt's own lines are left out of `out`.
upgrade_to() {
    cp "/tmp/greet_$1.deb" /var/cache/apt/archives
    capture apt-get -qq -o Dpkg::Use-Pty=0 install "/var/cache/apt/archives/greet_$1.deb"
}
export -f apt_hook upgrade_to

@test "later entries get the new version of a library that dpkg replaced while a process has it mapped" {
    in_host <<'EOF'
source "$project/tests/e2e/greet_package.bash"
account alice 100.64.0.4/30
account bob 100.64.0.8/30
printf 'hide\n    /etc/secret\n' >"$configuration"
echo secret >/etc/secret
greet_package 1
greet_package 2
dpkg --install /tmp/greet_1.deb >/dev/null
kivctl start -a >/dev/null 2>&1
stays alice
same "of bob before" 1 "$(kiv-run bob greet)"
dpkg --install /tmp/greet_2.deb >/dev/null
capture kiv-refresh -a
same "what it says" "0 " "$status $out$err"
for name in alice bob; do
    same "of $name afterwards" "2 version 2" "$(kiv-run "$name" sh -c 'echo $(greet; cat /usr/share/greet/version)')"
    refused kiv-run "$name" test -e /etc/secret
done
kill -0 "$resident"
grep -q 'libgreet.so.1' "/proc/$resident/maps"
capture kivctl stop alice
same "stderr of stop" "alice: terminating processes: $resident" "$err"
refused kill -0 "$resident"
same "files left of alice" "" "$(find /run/kiv -name 'alice*')"
same "of bob at last" 2 "$(kiv-run bob greet)"
EOF
}

@test "apt refreshes once per run, silently if no container runs, and never fails because of it" {
    in_host <<'EOF'
source "$project/tests/e2e/greet_package.bash"
account alice 100.64.0.4/30
for version in 1 2 3; do greet_package "$version"; done
apt_hook
upgrade_to 1
same "on a host without containers" "0 " "$status $err"
absent() { [ ! -e /run/kiv ]; }
absent
kivctl start alice >/dev/null
same "at first" 1 "$(kiv-run alice greet)"
printf '#!/bin/sh\necho "$*" >>/tmp/told\n' >/etc/tarnwell/refresh-hook
chmod +x /etc/tarnwell/refresh-hook
upgrade_to 2
same "beside a container" "0 " "$status $err"
same "in the container" 2 "$(kiv-run alice greet)"
same "refreshes" alice "$(cat /tmp/told)"
printf 'hide more\n' >"$configuration" # every refresh fails
upgrade_to 3
same "status with a refresh that fails" 0 "$status"
grep -q "^kiv-refresh: $configuration: line 1: " <<<"$err"
same "refreshes so far" alice "$(cat /tmp/told)"
: >"$configuration"
kivctl stop alice >/dev/null
capture apt-get -qq -o Dpkg::Use-Pty=0 remove greet
same "where everything was stopped" "0 " "$status $err"
same "refreshes at last" alice "$(cat /tmp/told)"
rm /usr/local/lib/programs # as a removed package leaves its hook
upgrade_to 3
same "without the program" "0 " "$status $err"
EOF
}
