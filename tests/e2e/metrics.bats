#!/usr/bin/env bats
# The collector for Prometheus: what it writes of the containers, and that nobody sees half of it.
load helpers
load cgroups
export collector="$project/dist/prometheus/kivctl-metrics"

@test "each account has its figures, and shares of the limits that it has" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol
stand_in_cgroups
kivctl start alice >/dev/null
kivctl start bob >/dev/null 2>&1
mkdir -p "$(slice alice)" "$(slice bob)"
echo 14 | tee "$(slice alice)/pids.current" >"$(slice bob)/pids.current"
echo 100 >"$(slice alice)/pids.max"
echo max >"$(slice bob)/pids.max"
echo 104857600 >"$(slice alice)/memory.current"
echo 1073741824 >"$(slice alice)/memory.high"
capture "$collector" /tmp
same status 0 "$status"
same stderr "" "$err"
same stdout "" "$out"
same "mode" 644 "$(stat -c %a /tmp/kivctl.prom)"
same "metrics" '# HELP kiv_container_active Whether the account has a running container.
# TYPE kiv_container_active gauge
kiv_container_active{account="alice"} 1
kiv_container_active{account="bob"} 1
kiv_container_active{account="carol"} 0
# HELP kiv_container_processes Processes and threads of the account.
# TYPE kiv_container_processes gauge
kiv_container_processes{account="alice"} 14
kiv_container_processes{account="bob"} 14
# HELP kiv_container_processes_limit_used_ratio Share of its process limit that the account uses, rounded down to 0.01; none without a limit.
# TYPE kiv_container_processes_limit_used_ratio gauge
kiv_container_processes_limit_used_ratio{account="alice"} 0.14
# HELP kiv_container_memory_bytes Memory that the account uses.
# TYPE kiv_container_memory_bytes gauge
kiv_container_memory_bytes{account="alice"} 104857600
# HELP kiv_container_memory_limit_used_ratio Share of its memory limit that the account uses, rounded down to 0.01; none without a limit.
# TYPE kiv_container_memory_limit_used_ratio gauge
kiv_container_memory_limit_used_ratio{account="alice"} 0.09
# HELP kiv_status_exit_code Exit status of kivctl status -a; 71 when an account failed.
# TYPE kiv_status_exit_code gauge
kiv_status_exit_code 0' "$(cat /tmp/kivctl.prom)"
EOF
}

@test "figures that fill their columns, and the largest, are taken as they are" {
    in_host <<'EOF'
account alice
account bob
stand_in_cgroups
figures alice pids.current=1000 pids.max=100 memory.current=9223372036854775807 memory.high=9223372036854775807
figures bob pids.current=12345 pids.max=100 memory.current=0 memory.high=1
# deliberate: a hundred times the largest figure does not fit, and wraps to less than nothing
"$collector" /tmp
same "figures" 'kiv_container_processes{account="alice"} 1000
kiv_container_processes{account="bob"} 12345
kiv_container_processes_limit_used_ratio{account="alice"} 10.00
kiv_container_processes_limit_used_ratio{account="bob"} 123.45
kiv_container_memory_bytes{account="alice"} 9223372036854775807
kiv_container_memory_bytes{account="bob"} 0
kiv_container_memory_limit_used_ratio{account="alice"} 0.00
kiv_container_memory_limit_used_ratio{account="bob"} 0.00' "$(grep -E '^kiv_container_(proc|mem)' /tmp/kivctl.prom)"
EOF
}

@test "names are escaped, twice is once, and bytes that are no text are left out" {
    in_host <<'EOF'
i=3000
for name in 'a"b' 'c\d' 'e|f' $'g\377h' 'yes' 'jürgen'; do
    echo "$name:x:$i:$i::/:/bin/sh" >>/etc/passwd
    echo "$name" >>"$registry"
    i=$((i + 1))
done
echo 'e|f' >>"$registry"
"$collector" /tmp
same "series" 'kiv_container_active{account="a\"b"} 0
kiv_container_active{account="c\\d"} 0
kiv_container_active{account="e|f"} 0
kiv_container_active{account="gh"} 0
kiv_container_active{account="yes"} 0
kiv_container_active{account="jürgen"} 0' "$(grep ^kiv_container /tmp/kivctl.prom)"
EOF
}

@test "an account that fails is told by kivctl's status, and the others are there" {
    in_host <<'EOF'
account alice
echo ghost >>"$registry"
capture "$collector" /tmp
same status 0 "$status"
same stderr "kivctl: ghost: ghost: unknown user" "$err"
same "values" 'kiv_container_active{account="alice"} 0
kiv_status_exit_code 71' "$(grep -v '^#' /tmp/kivctl.prom)"
echo nonsense extra >"$configuration"
capture "$collector" /tmp
same status 0 "$status"
same "values" 'kiv_status_exit_code 64' "$(grep -v '^#' /tmp/kivctl.prom)"
EOF
}

@test "the words of another language do not get into the figures" {
    in_host <<'EOF'
account alice
cmake --install "$(dirname "$(dirname "$KIVCTL")")" --prefix /usr >/dev/null
german
same "report" "Aktiv: nein" "$(kivctl status alice | tail -1)"
"$collector" /tmp
same "values" 'kiv_container_active{account="alice"} 0
kiv_status_exit_code 0' "$(grep -v '^#' /tmp/kivctl.prom)"
EOF
}

@test "the file is replaced as a whole, and a failure leaves the old one and nothing else" {
    in_host <<'EOF'
account alice
mkdir /tmp/metrics
"$collector" /tmp/metrics
exec {old}</tmp/metrics/kivctl.prom
account bob
"$collector" /tmp/metrics
same "what a reader of the old file sees" 1 "$(grep -c ^kiv_container_active <&"$old")"
same "accounts" 2 "$(grep -c ^kiv_container_active /tmp/metrics/kivctl.prom)"
before=$(cat /tmp/metrics/kivctl.prom)
mkdir /tmp/broken
ln -s /bin/false /tmp/broken/awk
PATH=/tmp/broken:$PATH refused "$collector" /tmp/metrics
same "metrics" "$before" "$(cat /tmp/metrics/kivctl.prom)"
same "files" kivctl.prom "$(ls -A /tmp/metrics)"
EOF
}

@test "it needs no capability but one, as its unit gives it" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
install -d -o nobody -m 755 /tmp/metrics
setpriv --bounding-set=-all,+dac_override --no-new-privs "$collector" /tmp/metrics
same "values" 'kiv_container_active{account="alice"} 1
kiv_status_exit_code 0' "$(grep -v '^#' /tmp/metrics/kivctl.prom)"
EOF
}
