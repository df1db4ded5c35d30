#!/usr/bin/env bats
# The collector for Prometheus: its metrics of the containers, which a reader never sees half
# written.
load helpers
load cgroups
export project collector="$project/dist/prometheus/kivctl-metrics"


# counted NAME FILE=VALUE…: sets the figures of the account's cgroup.
counted() {
    local figure
    mkdir -p "$(slice "$1")"
    for figure in "${@:2}"; do
        echo "${figure#*=}" >"$(slice "$1")/${figure%%=*}"
    done
}

# samples REGEX: prints the matching lines of the metrics without their comments.
samples() { grep -v '^#' /tmp/kivctl.prom | grep -E "$1"; }
export -f counted samples

@test "each account has its state and figures, and its shares of its limits" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol
stand_in_cgroups
kivctl start alice >/dev/null
kivctl start bob >/dev/null 2>&1
counted alice pids.current=14 pids.max=100 memory.current=104857600 memory.high=1073741824
counted alice "cpu.stat=usage_usec 1500000" "cpu.max=50000 100000"
counted bob pids.current=14 pids.max=max
capture "$collector" /tmp
same status 0 "$status"
same stderr "" "$err"
same stdout "" "$out"
same "mode" 644 "$(stat -c %a /tmp/kivctl.prom)"
same "states" 'kiv_container_state{account="alice",state="running"} 1
kiv_container_state{account="bob",state="running"} 1
kiv_container_state{account="carol",state="stopped"} 1' "$(samples '^kiv_container_state.* 1$')"
same "other states" 12 "$(samples '^kiv_container_state.* 0$' | wc -l)"
same "metrics" '# HELP kiv_container_active Whether the account has a running container.
# TYPE kiv_container_active gauge
kiv_container_active{account="alice"} 1
kiv_container_active{account="bob"} 1
kiv_container_active{account="carol"} 0
# HELP kiv_container_start_time_seconds When the container was started, in seconds since the epoch.
# TYPE kiv_container_start_time_seconds gauge
kiv_container_start_time_seconds{account="alice"} '"$(stat -c %Z /run/kiv/alice@net)"'
kiv_container_start_time_seconds{account="bob"} '"$(stat -c %Z /run/kiv/bob@net)"'
# HELP kiv_container_outdated Whether the view is older than the configuration or the host'"'"'s packages.
# TYPE kiv_container_outdated gauge
kiv_container_outdated{account="alice"} 0
kiv_container_outdated{account="bob"} 0
# HELP kiv_container_processes Processes and threads of the account.
# TYPE kiv_container_processes gauge
kiv_container_processes{account="alice"} 14
kiv_container_processes{account="bob"} 14
# HELP kiv_container_processes_limit Processes and threads that the account may have; none without a limit.
# TYPE kiv_container_processes_limit gauge
kiv_container_processes_limit{account="alice"} 100
# HELP kiv_container_processes_limit_used_ratio Share of its process limit that the account uses, rounded down to 0.01; none without a limit.
# TYPE kiv_container_processes_limit_used_ratio gauge
kiv_container_processes_limit_used_ratio{account="alice"} 0.14
# HELP kiv_container_memory_bytes Memory that the account uses.
# TYPE kiv_container_memory_bytes gauge
kiv_container_memory_bytes{account="alice"} 104857600
# HELP kiv_container_memory_limit_bytes Memory from which on the account is slowed down; none without a limit.
# TYPE kiv_container_memory_limit_bytes gauge
kiv_container_memory_limit_bytes{account="alice"} 1073741824
# HELP kiv_container_memory_limit_used_ratio Share of its memory limit that the account uses, rounded down to 0.01; none without a limit.
# TYPE kiv_container_memory_limit_used_ratio gauge
kiv_container_memory_limit_used_ratio{account="alice"} 0.09
# HELP kiv_container_cpu_seconds_total Processor time that the account has used.
# TYPE kiv_container_cpu_seconds_total counter
kiv_container_cpu_seconds_total{account="alice"} 1.5
# HELP kiv_container_cpu_limit_processors Processors that the account may use at a time; none without a limit.
# TYPE kiv_container_cpu_limit_processors gauge
kiv_container_cpu_limit_processors{account="alice"} 0.5
# HELP kiv_list_exit_code Exit status of kiv-list; above 3 when something could not be read.
# TYPE kiv_list_exit_code gauge
kiv_list_exit_code 3' "$(grep -v 'kiv_container_state' /tmp/kivctl.prom)"
EOF
}

@test "the largest figures, and shares above one, are exact" {
    in_host <<'EOF'
account alice
account bob
stand_in_cgroups
figures alice pids.current=1000 pids.max=100 memory.current=9223372036854775807 memory.high=9223372036854775807
figures bob pids.current=12345 pids.max=100 memory.current=0 memory.high=1
"$collector" /tmp
same "figures" 'kiv_container_processes{account="alice"} 1000
kiv_container_processes{account="bob"} 12345
kiv_container_processes_limit_used_ratio{account="alice"} 10.00
kiv_container_processes_limit_used_ratio{account="bob"} 123.45
kiv_container_memory_bytes{account="alice"} 9223372036854775807
kiv_container_memory_bytes{account="bob"} 0
kiv_container_memory_limit_used_ratio{account="alice"} 1.00
kiv_container_memory_limit_used_ratio{account="bob"} 0.00' "$(samples '^kiv_container_(processes|memory_bytes|memory.*ratio)' | grep -v 'limit{')"
EOF
}

@test "names are escaped, an account with two lines appears once, and bytes that are not text are replaced" {
    in_host <<'EOF'
i=3000
for name in 'a"b' 'c\d' 'e|f' $'g\377h' $'g\376h' 'yes' 'jürgen'; do
    echo "$name:x:$i:$i::/:/bin/sh" >>/etc/passwd
    echo "$name" >>"$registry"
    i=$((i + 1))
done
echo 'e|f' >>"$registry"
"$collector" /tmp
same "series" 'kiv_container_active{account="a\"b"} 0
kiv_container_active{account="c\\d"} 0
kiv_container_active{account="e|f"} 0
kiv_container_active{account="g'$'\uFFFD''h"} 0
kiv_container_active{account="yes"} 0
kiv_container_active{account="jürgen"} 0' "$(LC_ALL=C.UTF-8 samples ^kiv_container_active)"
EOF
}

@test "an account that fails changes the exit status, and the others are reported" {
    in_host <<'EOF'
account alice
echo ghost >>"$registry"
capture "$collector" /tmp
same status 0 "$status"
same stderr "kiv-list: ghost: unknown user" "$err"
same "values" 'kiv_container_active{account="alice"} 0
kiv_list_exit_code 4' "$(samples 'active|exit')"
rm "$registry"
capture "$collector" /tmp
same status 0 "$status"
same "values" 'kiv_list_exit_code 71' "$(samples .)"
PATH=/usr/bin:/bin capture "$collector" /tmp
same status 0 "$status"
same "values" 'kiv_list_exit_code 127' "$(samples .)"
record kiv-list 'printf "[{"; kill -KILL $$'
capture "$collector" /tmp
same status 0 "$status"
same "values" 'kiv_list_exit_code 137' "$(samples .)"
EOF
}

@test "a container that was stopped on purpose counts as stopped, and a broken one does not" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol 100.64.0.12/30
kivctl start -a >/dev/null 2>&1
kivctl stop alice >/dev/null
umount /run/kiv/bob@ipc
userdel carol
"$collector" /tmp
same "states" 'kiv_container_state{account="alice",state="stopped"} 1
kiv_container_state{account="bob",state="partial"} 1
kiv_container_state{account="carol",state="orphaned"} 1' "$(samples '^kiv_container_state.* 1$')"
EOF
}

@test "the file is replaced as a whole, and after a failure only the old one is left" {
    in_host <<'EOF'
account alice
mkdir /tmp/metrics
mount -t tmpfs -o size=16k metrics /tmp/metrics
"$collector" /tmp/metrics
exec {old}</tmp/metrics/kivctl.prom
account bob
"$collector" /tmp/metrics
same "what a reader of the old file sees" 1 "$(grep -c ^kiv_container_active <&"$old")"
same "accounts" 2 "$(grep -c ^kiv_container_active /tmp/metrics/kivctl.prom)"
before=$(cat /tmp/metrics/kivctl.prom)
head -c 16384 /dev/zero >/tmp/metrics/full 2>/dev/null || true
refused "$collector" /tmp/metrics
same "metrics" "$before" "$(cat /tmp/metrics/kivctl.prom)"
same "files" $'full\nkivctl.prom' "$(ls -A /tmp/metrics)"
capture "$collector" /tmp/absent
same "status without the directory" 1 "$status"
same stderr "kivctl-metrics: /tmp/absent: No such file or directory" "$err"
"$collector" --help | grep -q '^usage: kivctl-metrics'
EOF
}

@test "the collector needs only the two capabilities of its unit" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a >/dev/null 2>&1
python3 -c 'import os; os.setxattr("/run/kiv", "trusted.kiv.unfinished.bob", b"mnt pinned")'
install -d -o nobody -m 755 /tmp/metrics
setpriv --bounding-set=-all,+dac_override,+sys_admin --no-new-privs "$collector" /tmp/metrics
cp /tmp/metrics/kivctl.prom /tmp
same "values" 'kiv_container_state{account="alice",state="running"} 1
kiv_container_state{account="bob",state="interrupted"} 1' "$(samples '^kiv_container_state.* 1$')"
same "capabilities of the unit" "CAP_DAC_OVERRIDE CAP_SYS_ADMIN" \
    "$(sed -n 's/^CapabilityBoundingSet=//p' "${collector%/*}/kivctl-metrics.service.in")"
EOF
}

@test "with a real systemd the hardened unit runs and sees the running containers" {
    in_host <<'EOF'
source "$project/tests/e2e/manager.bash"
install_units
cp "$(dirname "$KIVCTL")/../dist/prometheus/kivctl-metrics.service" /etc/systemd/system
collected=$(sed -n 's/^ExecStart=//p' /etc/systemd/system/kivctl-metrics.service)
install -D "$collector" "$collected"
sed -i "s|^ExecStart=.*|&\nEnvironment=\"PATH=$PATH\"|" /etc/systemd/system/kivctl-metrics.service
mkdir -p /var/lib/prometheus/node-exporter
account alice 100.64.0.4/30
start_manager
managed kivctl start alice >/dev/null
systemctl start kivctl-metrics
same "states" 'kiv_container_state{account="alice",state="running"} 1' \
    "$(grep '^kiv_container_state.* 1$' /var/lib/prometheus/node-exporter/kivctl.prom)"
# the reason why the unit does not harden its mounts
sed -i 's/^UMask=.*/&\nProtectSystem=yes/' /etc/systemd/system/kivctl-metrics.service
systemctl daemon-reload
systemctl start kivctl-metrics
same "with mounts of its own" 'kiv_container_state{account="alice",state="partial"} 1' \
    "$(grep '^kiv_container_state.* 1$' /var/lib/prometheus/node-exporter/kivctl.prom)"
EOF
}
