#!/usr/bin/env bats
# kiv-list: prints the state of containers, for programs and for people.
load helpers
load cgroups
load with_residents

# value KEY [USER]: prints the value in the account's object; strings without quotes.
value() {
    kiv-list --json ${2:+"$2"} 2>/dev/null | python3 -c '
import json, sys
value = json.load(sys.stdin)[0][sys.argv[1]]
print(value if isinstance(value, str) else json.dumps(value))' "$1"
}

# states: prints "NAME=STATE" of all listed accounts, in order.
states() {
    kiv-list --json 2>/dev/null | python3 -c '
import json, sys
print(*(one["account"] + "=" + one["state"] for one in json.load(sys.stdin)))'
}
# counted NAME FILE=VALUE…: sets the figures of the account's cgroup.
counted() {
    local figure
    mkdir -p "$(slice "$1")"
    for figure in "${@:2}"; do
        echo "${figure#*=}" >"$(slice "$1")/${figure%%=*}"
    done
}
export -f value states counted

@test "an account is one object with all keys, in one array" {
    in_host <<'EOS'
stand_in_cgroups
account alice 100.64.0.4/30
kivctl start alice >/dev/null
counted alice pids.current=14 pids.max=100 memory.current=104857600 memory.high=max
counted alice "cpu.stat=usage_usec 1500000" "cpu.max=50000 100000"
began=$(stat -c %Z /run/kiv/alice@net)
capture kiv-list --json alice
same status 0 "$status"
same stderr "" "$err"
same "JSON" '[
  {
    "account": "alice",
    "uid": '"$(id -u alice)"',
    "state": "running",
    "network": "100.64.0.4/30",
    "host_address": "100.64.0.5",
    "address": "100.64.0.6",
    "interface": "veth-alice",
    "processes": 14,
    "processes_limit": 100,
    "memory": 104857600,
    "memory_limit": null,
    "cpu": 1.5,
    "cpu_limit": 0.5,
    "since": "'"$(date -u -d "@$began" +%FT%TZ)"'",
    "outdated": false,
    "old_processes": []
  }
]' "$out"
EOS
}

@test "a limit of 0 is a number, and no limit or an unknown one is null" {
    in_host <<'EOS'
stand_in_cgroups
account alice 100.64.0.4/30
kivctl start alice >/dev/null
counted alice pids.current=14 pids.max=0 memory.current=100 memory.high=0
same processes 0 "$(value processes_limit alice)"
same memory 0 "$(value memory_limit alice)"
same "in the table" "14/0 100/0" "$(kiv-list alice | awk 'NR == 2 { print $5, $6 }')"
counted alice pids.max=max
rm "$(slice alice)/memory.high"
same "no limit" null "$(value processes_limit alice)"
same "unknown limit" null "$(value memory_limit alice)"
EOS
}

@test "unknown values of a stopped account are null" {
    in_host <<'EOS'
account alice
capture kiv-list --json
same status 3 "$status"
same "JSON" '[
  {
    "account": "alice",
    "uid": '"$(id -u alice)"',
    "state": "stopped",
    "network": null,
    "host_address": null,
    "address": null,
    "interface": "veth-alice",
    "processes": null,
    "processes_limit": null,
    "memory": null,
    "memory_limit": null,
    "cpu": null,
    "cpu_limit": null,
    "since": null,
    "outdated": null,
    "old_processes": null
  }
]' "$out"
: >"$registry"
capture kiv-list --json
same "status of no account" 0 "$status"
same "no account" '[]' "$out"
EOS
}

@test "the exit status is that of an init script, and the highest of several counts" {
    in_host <<'EOS'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol 100.64.0.12/30
kivctl start alice >/dev/null
kivctl start bob >/dev/null 2>&1
umount /run/kiv/bob@mnt
fails 0 kiv-list alice >/dev/null
fails 1 kiv-list alice bob >/dev/null
fails 3 kiv-list carol bob alice >/dev/null
fails 3 kiv-list >/dev/null
echo ghost >>"$registry"
useradd dave
capture kiv-list alice ghost dave nobody-there ""
same status 4 "$status"
same stderr "kiv-list: ghost: unknown user
kiv-list: dave: KIV not configured for requested user
kiv-list: nobody-there: unknown user
kiv-list: : unknown user" "$err"
same "accounts that there are" 2 "$(wc -l <<<"$out")"
fails 4 kiv-list >/dev/null 2>&1
same "without the unknown one" "alice=running bob=partial carol=stopped" "$(states)"
EOS
}

@test "an interrupted container is listed so until it is started again" {
    in_host <<'EOS'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
python3 -c 'import os; os.setxattr("/run/kiv", "trusted.kiv.unfinished.alice", b"mnt pinned")'
same state interrupted "$(value state alice)"
fails 1 kiv-list alice >/dev/null
kivctl start alice >/dev/null 2>&1
same state running "$(value state alice)"
EOS
}

@test "a start that is under way is waited for, and not taken for an interrupted one" {
    in_host <<'EOS'
account bob 100.64.0.8/30
kivctl start bob >/dev/null # the host is prepared
account alice 100.64.0.4/30
record ip 'touch /tmp/starting; while [ ! -e /tmp/go ]; do sleep 0.05; done; exec $real "$@"'
kivctl start alice >/dev/null 2>&1 &
eventually test -e /tmp/starting
same "half-made" partial "$(value state alice)"
(sleep 0.3; touch /tmp/go) &
eventually test "$(value state alice)" = running
wait
same state running "$(value state alice)"
EOS
}

@test "namespace files without a user or a line of the registry are orphaned, and listed without being asked for" {
    in_host <<'EOS'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol 100.64.0.12/30
kivctl start -a >/dev/null 2>&1
userdel bob
sed -i /carol/d "$registry"
same states "alice=running bob=orphaned carol=orphaned" "$(states)"
fails 1 kiv-list >/dev/null
fails 1 kiv-list carol >/dev/null
same "user id that is gone" null "$(value uid bob)"
same "user id" "$(id -u carol)" "$(value uid carol)"
same "network that is gone" null "$(value network carol)"
same "interface" veth-carol "$(value interface carol)"
EOS
}

@test "a view is outdated once configuration or packages have changed, and not by a new account" {
    in_host <<'EOS'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
account bob
same "new account" false "$(value outdated alice)"
sleep 0.1
touch -r /etc/hostname "$configuration" # as cp -p and rsync do
same "configuration" true "$(value outdated alice)"
kivctl stop alice >/dev/null
kivctl start alice >/dev/null
same "started again" false "$(value outdated alice)"
sleep 0.1
printf 'Package: fresh\nStatus: install ok installed\nMaintainer: a <a@b.c>\nArchitecture: all\nVersion: 1\nDescription: x\n' \
    >>/var/lib/dpkg/status
same "packages" true "$(value outdated alice)"
EOS
}

@test "processes in an old view or with replaced files mapped are named, in JSON" {
    with_residents <<'EOS'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a >/dev/null 2>&1
library=/usr/lib/held.so # any will do
cp "$(ldd "$(command -v bash)" | sed -n 's/.*libtinfo.* => \([^ ]*\) .*/\1/p')" "$library"
resident alice net,ipc,mnt env LD_PRELOAD="$library" sleep 300
replaced=$pid
resident alice net,ipc,mnt sleep 300
resident bob net,ipc,mnt sleep 300
of_bob=$pid
nsenter --net=/run/kiv/bob@net sleep 300 & # an administrator's
old() { value old_processes "$1" | tr -d '\n'; }
same "at first" "[][]" "$(old alice)$(old bob)"
cp "$library" /usr/lib/new.so
mv /usr/lib/new.so "$library" # as dpkg does
sleep 0.1
touch /var/lib/dpkg/status
kiv-refresh bob
same "of alice" "[$replaced]" "$(old alice)"
same "of bob" "[$of_bob]" "$(old bob)"
same "of an account that is named twice" 2 "$(kiv-list --json bob bob | grep -cw "$of_bob")"
same "as kiv-check finds" "$replaced
$of_bob" "$( (kiv-check --host || true) | sed -nE 's/.*(were replaced|old view): ([0-9]+); .*/\2/p')"
old() { setpriv --bounding-set=-sys_ptrace kiv-list --json alice | sed -n 's/ *"old_processes": //p'; }
same "for a caller that may not look" null "$(old)"
EOS
}

@test "the time since is that of the container's start, also after a refresh" {
    in_host <<'EOS'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
since=$(value since alice)
sleep 1.1
umount /run/kiv/alice@mnt
kivctl start alice >/dev/null 2>&1
same state running "$(value state alice)"
same since "$since" "$(value since alice)"
sleep 1.1
kiv-refresh alice
same "since, after a refresh" "$since" "$(value since alice)"
EOS
}

@test "an unusable network has no addresses, and a long name has its short interface name" {
    in_host <<'EOS'
account alice 100.64.0.4/32
account averylongname nonsense
same network 100.64.0.4/32 "$(value network alice)"
same address null "$(value address alice)"
same network nonsense "$(value network averylongname)"
same "length of the interface" 14 "$(value interface averylongname | tr -d '\n' | wc -c)"
EOS
}

@test "the table is for people: columns are aligned in every language" {
    in_host <<'EOS'
stand_in_cgroups
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start alice >/dev/null
counted alice pids.current=14 pids.max=100 memory.current=104857600
since=$(value since alice)
capture kiv-list
same status 3 "$status"
same "table" "Account  State    Address      Interface   Processes  Memory     Since                 Outdated
alice    running  100.64.0.6   veth-alice  14/100     104857600  $since  no
bob      stopped  100.64.0.10  veth-bob    -          -          -                     -" "$out"
cmake --install "$(dirname "$(dirname "$KIVCTL")")/po" --prefix /usr >/dev/null
speak fr_FR
(kiv-list || true) | python3 -c '
import sys
lines = sys.stdin.read().splitlines()
starts = [[i for i in range(2, len(line)) if line[i - 2:i] == "  " and line[i] != " "] for line in lines]
assert starts[0] == starts[1] == starts[2], lines'
EOS
}

@test "names cannot forge lines, and names that are not text still give valid JSON" {
    in_host <<'EOS'
printf 'a\033[2Jb net=100.64.0.4/30\n' >>"$registry"
printf 'g\377h net=100.64.0.8/30\n' >>"$registry"
printf 'a\033[2Jb:x:3000:3000::/:/bin/sh\ng\377h:x:3001:3001::/:/bin/sh\n' >>/etc/passwd
refused grep -q $'\033' <<<"$(kiv-list || true)"
same states $'a\033[2Jb=stopped g\357\277\275h=stopped' "$(states)"
EOS
}

@test "an account with two lines is listed once, with the network that start uses" {
    in_host <<'EOS'
account alice 100.64.0.4/30
echo "alice net=100.64.0.8/30" >>"$registry"
same states "alice=stopped" "$(states)"
same network 100.64.0.4/30 "$(value network)"
EOS
}

@test "a wrong or forbidden call prints one line and lists nothing" {
    in_host <<'EOS'
account alice
capture kiv-list --jsn
same status 64 "$status"
same stderr "kiv-list: unknown option '--jsn'" "$err"
same stdout "" "$out"
capture setpriv --reuid nobody --clear-groups "$(command -v kiv-list)" alice
same status 64 "$status"
same stderr "kiv-list: only root may run this program" "$err"
capture sh -c 'kiv-list --json >/dev/full'
same "status without a place for the output" 71 "$status"
same stderr "kiv-list: cannot write to standard output: No space left on device" "$err"
rm "$registry"
capture kiv-list alice
same status 71 "$status"
same stderr "kiv-list: cannot open /etc/tarnwell/kiv.users: No such file or directory" "$err"
capture kiv-list alice --version
same status 0 "$status"
same stdout "Tarnwell Account Container (KIV) version 3.3.0 (build 18139)" "$out"
capture kiv-list -h
same status 0 "$status"
same usage "Usage: kiv-list [options] [USER...]" "$(head -n 1 <<<"$out")"
EOS
}
