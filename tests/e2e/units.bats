#!/usr/bin/env bats
# The units that start containers and limit accounts, with a real systemd.
load helpers

# on_managed_host <<'EOF' … EOF: like in_host; alice, bob and carol are users, the first two are
# accounts.
on_managed_host() {
    local script
    script=$(cat)
    in_host <<<"source '$BATS_TEST_DIRNAME/manager.bash'
        install_units
        cp '$project/dist/limits.conf' /etc/tarnwell
        account alice 100.64.0.4/30
        account bob 100.64.0.8/30
        useradd carol
        start_manager
        $script"
}

# limits NAME: prints systemd's state of the user's slice: processes, memory, CPU share, whether it
# stays and whether it exists.
limits() {
    systemctl show --property TasksMax,MemoryHigh,MemoryMax,CPUWeight,IOWeight,StopWhenUnneeded,ActiveState \
        "user-$(id -u "$1").slice" | sort
}

# sample [TASKS]: installs the shipped file with plain numbers, which differ from all defaults.
sample() {
    sed -i "s/^TasksMax=.*/TasksMax=${1:-77}/; s/^MemoryHigh=.*/MemoryHigh=64M/; s/^MemoryMax=.*/MemoryMax=96M/
        s/^CPUWeight=.*/CPUWeight=88/; s/^IOWeight=.*/IOWeight=99/" /etc/tarnwell/limits.conf
}
limited="ActiveState=active
CPUWeight=88
IOWeight=99
MemoryHigh=$((64 << 20))
MemoryMax=$((96 << 20))
StopWhenUnneeded=no
TasksMax=77"
export project limited
export -f limits sample

@test "limits apply to every account and to nobody else, and stay after the last process has ended" {
    on_managed_host <<'EOF'
sample
before=$(limits carol)
systemctl --quiet enable kivctl-limits
systemctl start kivctl
same "of alice" "$limited" "$(limits alice)"
same "of bob" "$limited" "$(limits bob)"
same "of carol, who is no account" "$before" "$(limits carol)"
refused grep -q 77 <<<"$(systemctl show --property TasksMax user-0.slice)"
managed kivctl exec alice <<<true >/dev/null
slice=/sys/fs/cgroup/user.slice/user-$(id -u alice).slice
test -d "$slice/kiv"
sleep 1
same "after the last process" "$limited" "$(limits alice)"
for figure in pids.max=77 memory.high=67108864 memory.max=100663296; do
    if grep -qw "${figure%%.*}" /sys/fs/cgroup/cgroup.controllers; then
        same "in the kernel" "${figure#*=}" "$(cat "$slice/${figure%=*}")"
    fi
done
EOF
}

@test "a reload applies changed limits, new accounts and removed ones; a drop-in of one account wins" {
    on_managed_host <<'EOF'
sample
before=$(limits carol)
systemctl start kivctl-limits
install -D -m 644 /dev/stdin "/etc/systemd/system/user-$(id -u bob).slice.d/override.conf" <<<$'[Slice]\nTasksMax=55'
sample 66
echo "carol net=100.64.0.12/30" >>"$registry"
systemctl start kivctl
systemctl reload kivctl # also the limits
same "of alice" "${limited/77/66}" "$(limits alice)"
same "of bob" "${limited/77/55}" "$(limits bob)"
same "of carol" "${limited/77/66}" "$(limits carol)"
systemctl set-property "user-$(id -u alice).slice" TasksMax=44
systemctl reload kivctl-limits
same "of alice, set by hand" "${limited/77/44}" "$(limits alice)"

managed kivctl stop carol >/dev/null
echo "nobody-knows net=100.64.0.16/30" >>"$registry"
sed -i /^carol/d "$registry"
systemctl reload kivctl-limits
same "while an account is no user" "${limited/77/66}" "$(limits carol)"
sed -i /^nobody-knows/d "$registry"
systemctl reload kivctl-limits
no_account_any_more() { [ "$(limits carol)" = "$before" ]; }
eventually no_account_any_more

for moment in pre post; do
    install -D "$project/dist/shadow/userdel-hook" "/etc/shadow-maint/userdel-$moment.d/kivctl"
done
id=$(id -u alice)
managed userdel alice
forgotten() { [ ! -e "/proc/$manager/root/run/systemd/system/user-$id.slice.d" ]; }
eventually forgotten
same "lines" "bob net=100.64.0.8/30" "$(cat "$registry")"
systemctl stop kivctl-limits
same "links" "" "$(managed sh -c 'ls -d /run/systemd/system/user-*' 2>/dev/null || true)"
same "of bob" 55 "$(systemctl show --value --property TasksMax "user-$(id -u bob).slice")"
EOF
}

@test "without the registry or the limits the unit fails and reports that" {
    on_managed_host <<'EOF'
mv /etc/tarnwell/limits.conf /etc/tarnwell/away
refused systemctl start kivctl-limits 2>/dev/null
systemctl reset-failed
helper=$(sed -n 's/^ExecStart=\(.*\) apply/\1/p' /etc/systemd/system/kivctl-limits.service)
capture managed "$helper" apply
same "without limits" "71 account-limits: cannot read /etc/tarnwell/limits.conf" "$status $err"
mv /etc/tarnwell/away /etc/tarnwell/limits.conf
rm "$registry"
capture managed "$helper" apply
same "without a registry" "71 account-limits: cannot read $registry" "$status $err"
for arguments in "" start "apply all"; do
    # shellcheck disable=SC2086 # several words
    fails 64 "$helper" $arguments 2>/dev/null
done
EOF
}

@test "an account with its own unit is started and stopped by it, with the hooks of drop-ins" {
    on_managed_host <<'EOF'
install -m 755 /dev/stdin /usr/local/bin/note <<'HOOK'
#!/bin/sh
echo "$* $(ls /run/kiv/"$2@net" 2>/dev/null)" >>/tmp/notes
HOOK
install -D -m 644 /dev/stdin /etc/systemd/system/kivctl@.service.d/hooks.conf <<'HOOKS'
[Service]
ExecStartPre=+/usr/local/bin/note before %i
ExecStartPost=+/usr/local/bin/note after %i
ExecStopPost=+/usr/local/bin/note stopped %i
HOOKS
systemctl --quiet enable kivctl@alice
notes() { managed cat /tmp/notes; }
systemctl start kivctl
same "at the start" $'before alice \nafter alice /run/kiv/alice@net' "$(notes)"
running() { managed kiv-list | awk '$2 == "running" { print $1 }' | xargs; }
same "containers" "alice bob" "$(running)"
helpers=$(sed -n 's|^ExecStart=\(.*\)/all-accounts start .*|\1|p' /etc/systemd/system/kivctl.service)
managed "$helpers/all-accounts" stop >/dev/null # as kivctl.service stops
same "left to its unit" alice "$(running)"
view=$(managed stat -Lc %i /run/kiv/alice@mnt)
systemctl reload kivctl@alice
refused test "$view" = "$(managed stat -Lc %i /run/kiv/alice@mnt)"
managed kiv-run alice sh -c 'trap "" TERM; touch ~/there; while :; do sleep 0.1; done' </dev/null >/dev/null 2>&1 3>&- &
eventually test -e /home/alice/there
systemctl stop kivctl@alice
same "with a process that stays" failed "$(systemctl is-active kivctl@alice || true)"
pkill --signal KILL --uid alice
systemctl start kivctl@alice
systemctl stop kivctl
once_stopped() { [ "$(notes | tail -n 1)" = "stopped alice " ]; }
eventually once_stopped
same "containers" "" "$(managed ls /run/kiv)"
systemctl start kivctl@bob
same "bob" active "$(systemctl is-active kivctl@bob)"
refused systemctl start kivctl@carol 2>/dev/null
EOF
}

@test "the hook that kiv-refresh(8) shows restarts the services of refreshed accounts during a reload" {
    on_managed_host <<'EOF'
sed -n '/^#!\/bin\/sh$/,/^\.Ed$/{/^\.Ed$/d; s/\\-/-/g; p}' "$project/docs/man/kiv-refresh.8" >/etc/tarnwell/refresh-hook
chmod +x /etc/tarnwell/refresh-hook
programs=$(sed -n 's|^ExecStart=.* --program \(.*\)/kivctl$|\1|p' /etc/systemd/system/kivctl.service)
sed "/^Exec[A-Z].*=/{/^ExecStart=/!d; s|=.*|=$programs/kiv-run %i sleep 1000|}" \
    "$project/dist/services/kiv-php@.service" >/etc/systemd/system/kiv-php@.service
systemctl start kivctl kiv-php@alice
main() { systemctl show --value --property MainPID kiv-php@alice; }
before=$(main)
timeout 60 nsenter --target "$manager" --pid --mount systemctl reload kivctl
restarted() { [ "$(main)" != 0 ] && [ "$(main)" != "$before" ]; }
eventually restarted
old() { managed kiv-list --json alice | sed -n 's/ *"old_processes": //p'; }
none_is_old() { [ "$(old)" = "[]" ]; }
eventually none_is_old
same "of bob, which was not active" inactive "$(systemctl is-active kiv-php@bob || true)"
EOF
}
