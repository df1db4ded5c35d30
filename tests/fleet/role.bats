#!/usr/bin/env bats
# The Ansible role on a simulated host with the packages.
load ../e2e/helpers
export KIVCTL=/usr/sbin/kivctl
export project

# tests/fleet/run names the packages. They are copied to a directory that the host sees.
setup_file() {
    export KIV_PACKAGES=$project/build/fleet-packages
    mkdir -p "$KIV_PACKAGES"
    mapfile -t files <<<"$KIV_PACKAGE_FILES"
    cp -f "${files[@]}" "$KIV_PACKAGES"
    KIV_PACKAGE_FILES=$(for file in "${files[@]}"; do echo "$KIV_PACKAGES/${file##*/}"; done)
    export KIV_PACKAGE_FILES
}

# A host before the role is applied: no kivctl, and the accounts' users with their homes.
fresh_host() {
    rm -r /etc/tarnwell
    dpkg-query -W kivctl >/dev/null 2>&1 && dpkg --purge kivctl libkiv1 >/dev/null
    export ANSIBLE_CONFIG=$project/dist/ansible/ansible.cfg HOME=/root ANSIBLE_LOCALHOST_WARNING=False
    export ANSIBLE_LOCAL_TEMP=/tmp/ansible ANSIBLE_REMOTE_TEMP=/tmp/ansible
    for user in alice bob carol; do
        useradd --create-home --shell /bin/bash "$user"
        install -d -o "$user" -g "$user" "/home/$user/tmp"
    done
}

# apply ACCOUNTS [SETTING…]: captures a run of the playbook with the inventory's accounts, a YAML
# list, and sets `recap` to the figures that are not 0.
apply() {
    cat >/tmp/inventory.yml <<END
webhosts:
  hosts:
    simulated:
      ansible_connection: local
      ansible_python_interpreter: /usr/bin/python3
      kivctl_configuration_file: $project/dist/kiv.conf
      kivctl_package_files: [$(paste -sd , <<<"$KIV_PACKAGE_FILES")]
      kivctl_accounts: $1
END
    local setting
    for setting in "${@:2}"; do
        echo "      $setting" >>/tmp/inventory.yml
    done
    capture ansible-playbook -i /tmp/inventory.yml "$project/dist/ansible/playbook.yml"
    # shellcheck disable=SC2034 # for the caller
    recap=$(grep -oE '(changed|failed|unreachable)=[1-9][0-9]*' <<<"$out" | xargs || true)
    [ "$status" = 0 ] || echo "$out $err" >&2
}

lines() { grep -v '^#' /etc/tarnwell/kiv.users; }

# namespaces NAME: prints their identities; a container that was started again has others.
namespaces() { stat -c %i /run/kiv/"$1"@{net,ipc}; }
export -f fresh_host apply lines namespaces

@test "an empty host gets package, configuration, registry, unit and containers, and a second run changes nothing" {
    in_host <<'EOF'
fresh_host
apply "[alice, bob]"
same status 0 "$status"
same registry "alice net=100.64.0.4/30
bob net=100.64.0.8/30" "$(lines)"
same configuration "$(cat "$project/dist/kiv.conf")" "$(cat "$configuration")"
same unit enabled "$(systemctl is-enabled kivctl.service)"
for name in alice bob; do
    same "live namespaces of $name" $'net\nipc\nmnt' "$(mounted "$name")"
done
before=$(namespaces alice; namespaces bob)
apply "[alice, bob]"
same status 0 "$status"
# shellcheck disable=SC2154 # from apply
same recap "" "$recap"
same namespaces "$before" "$(namespaces alice; namespaces bob)"
systemctl disable kivctl.service 2>/dev/null
apply "[alice, bob]"
same recap "changed=1" "$recap"
same unit enabled "$(systemctl is-enabled kivctl.service)"
EOF
}

@test "a new account gets its container, and running ones keep network and namespaces" {
    in_host <<'EOF'
fresh_host
apply "[alice, bob]"
before=$(namespaces alice; namespaces bob)
apply "[carol, alice, bob]"
same status 0 "$status"
same recap "changed=2" "$recap" # registry and handler
same registry "carol net=100.64.0.12/30
alice net=100.64.0.4/30
bob net=100.64.0.8/30" "$(lines)"
same "live namespaces" $'net\nipc\nmnt' "$(mounted carol)"
same namespaces "$before" "$(namespaces alice; namespaces bob)"
EOF
}

@test "a new configuration applies to later entries, and running containers keep network and namespaces" {
    in_host <<'EOF'
fresh_host
apply "[alice]"
before=$(namespaces alice)
kiv-run alice test -e /etc/hostname
{ cat "$project/dist/kiv.conf" && printf 'hide\n    /etc/hostname\n'; } >/tmp/other.conf
apply "[alice]" "kivctl_configuration_file: /tmp/other.conf"
same status 0 "$status"
same recap "changed=2" "$recap" # configuration and handler
refused kiv-run alice test -e /etc/hostname
same namespaces "$before" "$(namespaces alice)"
apply "[alice]" "kivctl_configuration_file: /tmp/other.conf"
same "recap of the second time" "" "$recap"
EOF
}

@test "an account that left the inventory is reported while it runs, and removed when it is stopped" {
    in_host <<'EOF'
fresh_host
apply "[alice, bob]"
apply "[carol, bob]"
same status 0 "$status"
grep -q "alice has left the inventory and still runs: kivctl stop alice" <<<"$out"
same registry "carol net=100.64.0.12/30
bob net=100.64.0.8/30
alice net=100.64.0.4/30" "$(lines)"
apply "[carol, bob]"
same recap "" "$recap"
kivctl stop alice
apply "[carol, bob]"
same registry "carol net=100.64.0.12/30
bob net=100.64.0.8/30" "$(lines)"
apply "[carol]" "kivctl_stop_removed: true"
same status 0 "$status"
same registry "carol net=100.64.0.12/30" "$(lines)"
same "containers" "carol" "$(find /run/kiv -name '*@mnt' -printf '%f\n' | sed 's/@.*//')"
apply "[carol]" "kivctl_stop_removed: true"
same recap "" "$recap"
EOF
}

@test "an account keeps its line and fails the play while kivctl_stop_removed cannot stop its container" {
    in_host <<'EOF'
fresh_host
apply "[alice, bob]"
kivctl exec alice <<<'trap "" TERM; sleep 300 & echo $!' >/tmp/pid 2>/dev/null
apply "[bob]" "kivctl_stop_removed: true" 2>/dev/null
same status 2 "$status"
grep -qF "failed: [simulated] (item=alice)" <<<"$out"
same registry "alice net=100.64.0.4/30
bob net=100.64.0.8/30" "$(lines)"
kill -KILL "$(tail -n 1 /tmp/pid)"
apply "[bob]" "kivctl_stop_removed: true"
same status 0 "$status"
same registry "bob net=100.64.0.8/30" "$(lines)"
EOF
}

@test "neither a configuration that kivctl refuses nor a network in use reaches the host" {
    in_host <<'EOF'
fresh_host
apply "[alice]"
before=$(cat "$configuration" "$registry")
echo "hide /etc" >/tmp/bad.conf
apply "[alice]" "kivctl_configuration_file: /tmp/bad.conf" 2>/dev/null
same recap "failed=1" "$recap"
apply "[alice, {name: bob, net: 100.64.0.4/30}]" 2>/dev/null
same recap "failed=1" "$recap"
grep -q "alice and bob have the same network" <<<"$out"
apply "[{name: alice, net: 100.64.9.0/30}]" 2>/dev/null
grep -q "alice runs with 100.64.0.4/30 and is to have 100.64.9.0/30: stop it first" <<<"$out"
same "files" "$before" "$(cat "$configuration" "$registry")"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "an account that the host does not have fails the play, and the registry does not change" {
    in_host <<'EOF'
fresh_host
apply "[alice]"
before=$(cat "$registry")
apply "[alice, ghost, bob]" 2>/dev/null
same recap "failed=1" "$recap"
grep -q "there is no user 'ghost'" <<<"$out"
same registry "$before" "$(cat "$registry")"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
EOF
}

@test "with a real systemd, new accounts have their limits at once" {
    in_host <<'EOF'
source "$project/tests/e2e/manager.bash"
fresh_host
ln -s /dev/null /etc/systemd/system/systemd-tmpfiles-setup.service # it empties /tmp
start_manager
ansible-playbook() { managed ansible-playbook "$@"; }
limit() { systemctl show --value --property TasksMax "user-$(id -u "$1").slice"; }
apply "[alice]"
same status 0 "$status"
same "limit of alice" 512 "$(limit alice)"
before=$(limit bob)
apply "[alice, bob]"
same recap "changed=3" "$recap" # registry and two handlers
same "limits" "512 512" "$(limit alice) $(limit bob)"
apply "[alice, bob]" "kivctl_limits: false"
same "limits when switched off" "$before $before" "$(limit alice) $(limit bob)"
EOF
}

@test "the package comes from the host's sources when there are no files" {
    in_host <<'EOF'
fresh_host
mkdir /tmp/archive
# shellcheck disable=SC2086 # paths without blanks
cp $KIV_PACKAGE_FILES /tmp/archive
(cd /tmp/archive && dpkg-scanpackages . >Packages 2>/dev/null)
rm -rf /etc/apt/sources.list /etc/apt/sources.list.d/*
echo "deb [trusted=yes] file:/tmp/archive ./" >/etc/apt/sources.list
apply "[alice]" "kivctl_package_files: []"
same status 0 "$status"
same package "install ok installed" "$(dpkg-query -W -f '${Status}' kivctl)"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
apply "[alice]" "kivctl_package_files: []"
same recap "" "$recap"
EOF
}

@test "nothing is written, installed or started in check mode" {
    in_host <<'EOF'
fresh_host
apply "[alice]"
before=$(cat "$registry")
capture ansible-playbook --check -i /tmp/inventory.yml -e '{"kivctl_accounts": ["alice", "bob"]}' \
    "$project/dist/ansible/playbook.yml"
same status 0 "$status"
same registry "$before" "$(cat "$registry")"
same "live namespaces" "" "$(mounted bob)"
EOF
}

@test "promtool accepts the metrics of the role's hosts" {
    in_host <<'EOF'
fresh_host
apply "[alice, bob]"
echo 'a"b\c:x:3000:3000::/:/bin/sh' >>/etc/passwd
printf '%s\n' 'a"b\c' ghost >>"$registry"
mount -t tmpfs cgroups /sys/fs/cgroup
slice=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice
mkdir -p "$slice"
for figure in pids.current=14 pids.max=100 memory.current=104857600 memory.high=1073741824; do
    echo "${figure#*=}" >"$slice/${figure%=*}"
done
"$project/dist/prometheus/kivctl-metrics" /tmp 2>/dev/null
same "accounts" 3 "$(grep -c ^kiv_container_active /tmp/kivctl.prom)"
capture promtool check metrics </tmp/kivctl.prom
same status 0 "$status"
same findings "" "$out$err"
EOF
}

@test "the shipped alerts fire for broken containers, and not for those that were stopped on purpose" {
    promtool test rules "$project/tests/fleet/rules_test.yml"
}
