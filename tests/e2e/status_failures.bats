#!/usr/bin/env bats
# Calls and accounts that status refuses, and its output for the others.
load helpers
load cgroups

@test "an account that is not in the registry is refused, and so is an empty name" {
    in_host <<'EOF'
account alice
useradd carol
for name in carol "" ali "alice "; do
    capture kivctl status "$name"
    same "status of '$name'" 71 "$status"
    same "stdout of '$name'" "" "$out"
    same "stderr of '$name'" "kivctl: KIV not configured for requested user" "$err"
done
rm "$registry"
capture kivctl status -a
same status 71 "$status"
same stdout "" "$out"
same stderr "kivctl: cannot open /etc/tarnwell/kiv.users: No such file or directory" "$err"
EOF
}

@test "an account that is listed twice has no report, and two lines in the table" {
    in_host <<'EOF'
account alice
account bob
echo alice >>"$registry"
capture kivctl -d status alice
same status 71 "$status"
same stdout "collecting status for container: alice
collecting status for container: alice" "$out"
same stderr "kivctl: Unexpected size of status list" "$err"
capture kivctl status -a
same status 0 "$status"
same table "\
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | no     |           |          |
| bob     | no     |           |          |
| alice   | no     |           |          |
+---------+--------+-----------+----------+" "$out"
EOF
}

@test "a named account that cannot have a container is refused" {
    in_host <<'EOF'
printf '%s\n' al@ice nobody-here root >>"$registry"
refuses() {
    capture kivctl status "$1"
    same "status of $1" 71 "$status"
    same "stdout of $1" "" "$out"
    same "stderr of $1" "kivctl: $2" "$err"
}
refuses al@ice "al@ice: invalid character '@' in user name"
refuses nobody-here "nobody-here: unknown user"
refuses root "root: cannot create container for uid 0"
EOF
}

@test "with -a the table of the others is printed, then a line for each account that failed" {
    in_host <<'EOF'
echo al@ice >>"$registry"
account bob
echo an-unknown-user-with-a-long-name >>"$registry"
account carol
account dave
echo root >>"$registry"
stand_in_cgroups
figures bob pids.current=5 pids.max=20
figures carol pids.current=1234567890 pids.max=unlimited
figures dave memory.current=99999999999999999999
capture kivctl status -a
same status 71 "$status"
same stdout "\
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| bob     | yes    |  5  (25%) |          |
+---------+--------+-----------+----------+" "$out"
same stderr "kivctl: al@ice: al@ice: invalid character '@' in user name
an-unknown-user-with-a-long-name: an-unknown-user-with-a-long-name: unknown user
carol: stoull
dave: stoull
root: root: cannot create container for uid 0" "$err"
# also on one stream: a table after its errors would look complete
kivctl status -a >/tmp/both 2>&1 || true
same "order on one stream" "$out
$err" "$(cat /tmp/both)"
EOF
}

@test "a named account's figure that is not a number ends the program with a report" {
    in_host <<'EOF'
account alice
stand_in_cgroups
aborts() {
    capture bash -c "ulimit -c 0; exec kivctl status alice"
    same status 134 "$status"
    same stdout "" "$out"
    same stderr "uncaught exception $1: stoull" "$(head -n 1 <<<"$err")"
}
figures alice pids.current=x
aborts std::invalid_argument
figures alice pids.current=5 memory.current=7 memory.high=infinity
aborts std::invalid_argument
figures alice pids.current=18446744073709551616
aborts std::out_of_range
EOF
}

@test "a negative number, and a number with text after it, are accepted as figures" {
    in_host <<'EOF'
account alice
stand_in_cgroups
figures alice pids.current=-1 pids.max=20 memory.current="5 x" memory.high=-1
capture kivctl status alice
same status 0 "$status"
same stderr "" "$err"
same report "Account: alice
Active: yes
Processes: -1 (-5%)
Memory: 5" "$out"
capture kivctl status -a
same status 0 "$status"
same "line of the table" "| alice   | yes    | -1  (-5%) | 5    (∞) |" "$(sed -n 4p <<<"$out")"
EOF
}
