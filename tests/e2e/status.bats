#!/usr/bin/env bats
# The output and colours of status, and that it changes nothing.
load helpers
load cgroups

# The state that status could change on the host.
state() {
    ls -laR --time-style=full-iso /run/kiv /sys/fs/cgroup/user.slice 2>/dev/null || true
    cut -d ' ' -f 5- /proc/self/mountinfo
    ip -o link
    iptables-save | sed '/^#/d'
}
export -f state

@test "an account without a container is not active, and has no figures" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(state)
capture kivctl status alice
same status 0 "$status"
same stdout "Account: alice
Active: no" "$out"
same stderr "" "$err"
refused test -e /run/kiv
same "state of the host" "$before" "$(state)"
EOF
}

@test "a container is active from its start until its namespace file is removed" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob
kivctl start alice >/dev/null
before=$(state)
capture kivctl status alice
same status 0 "$status"
same stdout "Account: alice
Active: yes" "$out"
same stderr "" "$err"
capture kivctl status -a
same status 0 "$status"
same table "\
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | yes    |           |          |
| bob     | no     |           |          |
+---------+--------+-----------+----------+" "$out"
same stderr "" "$err"
same "state of the host" "$before" "$(state)"
umount /run/kiv/alice@mnt
rm /run/kiv/alice@mnt
same "report" "Account: alice
Active: no" "$(kivctl status alice)"
EOF
}

@test "a slice without controllers, as the kernel creates it, has no figures" {
    in_host <<'EOF'
account alice
directory=$(slice alice)
mkdir /run/kiv /sys/fs/cgroup/user.slice
touch /run/kiv/alice@mnt
# a child has only the controllers that its parent enables, and nobody has enabled any here
mkdir "$directory"
refused test -e "$directory/pids.current"
capture kivctl status alice
same status 0 "$status"
same stdout "Account: alice
Active: yes" "$out"
EOF
}

@test "the table without accounts is a header between three rules" {
    in_host <<'EOF'
capture kivctl status -a
same status 0 "$status"
same table "\
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
+---------+--------+-----------+----------+" "$out"
same stderr "" "$err"
EOF
}

@test "figures come from the account's slice, with truncated percentages of their limits" {
    in_host <<'EOF'
account alice
account bob
stand_in_cgroups
figures alice pids.current=5 pids.max=20 memory.current=1023 memory.high=1024 memory.max=4096
figures bob pids.current=120 pids.max=100 memory.current=123456789 memory.high=0
before=$(state)
same report "Account: alice
Active: yes
Processes: 5 (25%)
Memory: 1023 (99%)" "$(kivctl status alice)"
same "report of bob" "Account: bob
Active: yes
Processes: 120 (120%)
Memory: 123456789" "$(kivctl status bob)"
same table "\
+---------+--------+------------+------------------+
| Account | Active | Processes  | Memory           |
+---------+--------+------------+------------------+
| alice   | yes    |   5  (25%) |      1023  (99%) |
| bob     | yes    | 120 (120%) | 123456789    (∞) |
+---------+--------+------------+------------------+" "$(kivctl status -a)"
same "state of the host" "$before" "$(state)"
EOF
}

@test "without a limit the table shows infinity and the report only the number" {
    in_host <<'EOF'
account alice
account bob
account carol
stand_in_cgroups
figures alice pids.current=5 pids.max=max memory.current=7 memory.high=max
figures bob pids.current=5 memory.current=7
figures carol pids.current=5 pids.max= memory.current=7 memory.high=
for user in alice bob carol; do
    same "report of $user" "Account: $user
Active: yes
Processes: 5
Memory: 7" "$(kivctl status "$user")"
done
same table "\
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | yes    |  5    (∞) | 7    (∞) |
| bob     | yes    |  5    (∞) | 7    (∞) |
| carol   | yes    |  5    (∞) | 7    (∞) |
+---------+--------+-----------+----------+" "$(kivctl status -a)"
EOF
}

@test "a missing or empty figure is left out, with or without a limit" {
    in_host <<'EOF'
account alice
account bob
stand_in_cgroups
figures alice pids.current= pids.max=x memory.current=7
figures bob pids.current=5 memory.high=x
same report "Account: alice
Active: yes
Memory: 7" "$(kivctl status alice)"
same "report of bob" "Account: bob
Active: yes
Processes: 5" "$(kivctl status bob)"
same table "\
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | yes    |           | 7    (∞) |
| bob     | yes    |  5    (∞) |          |
+---------+--------+-----------+----------+" "$(kivctl status -a)"
EOF
}

@test "a figure whose cgroup is removed during the reading is left out" {
    in_host <<'EOF'
account alice
stand_in_cgroups
figures alice pids.current=5 pids.max=20 memory.current=7 memory.high=14
injected read:error=ENODEV -P "$(slice alice)/pids.current" kivctl status alice
same status 0 "$status"
same report "Account: alice
Active: yes
Memory: 7 (50%)" "$out"
same stderr "" "$err"
injected read:error=ENODEV -P "$(slice alice)/memory.high" kivctl status alice
same status 0 "$status"
same report "Account: alice
Active: yes
Processes: 5 (25%)
Memory: 7" "$out"
EOF
}

@test "figures of an inactive container are not read, and others are read once and in order" {
    in_host <<'EOF'
account alice
stand_in_cgroups
figures alice pids.current=5 pids.max=20 memory.current=7 memory.high=14
looked_at() {
    strace -o /tmp/trace -e trace=%file kivctl status alice >/dev/null
    # figures are opened below the directory of all slices
    sed -nE 's,^[^"]*"(/run/kiv/|/sys/fs/cgroup/user.slice/)?((alice@|user-)[^"]*)".*,\2,p' /tmp/trace
}
name=user-$(id -u alice).slice
same "of an active one" "alice@mnt
$name
$name/pids.current
$name/pids.max
$name/memory.current
$name/memory.high" "$(looked_at)"
rm "$(slice alice)/pids.current"
same "without processes" "alice@mnt
$name
$name/pids.current
$name/memory.current
$name/memory.high" "$(looked_at)"
rm "$(slice alice)/memory.current"
same "without any" "alice@mnt
$name
$name/pids.current
$name/memory.current" "$(looked_at)"
rm /run/kiv/alice@mnt
same "of one that is not" alice@mnt "$(looked_at)"
EOF
}

@test "a percentage of four digits fills its column, one of five makes its line longer" {
    in_host <<'EOF'
account alice
account bob
account carol
stand_in_cgroups
figures alice pids.current=99 pids.max=9 memory.current=1 memory.high=4
figures bob pids.current=99 pids.max=1 memory.current=1 memory.high=4
figures carol pids.current=100 pids.max=1 memory.current=1 memory.high=4
same table "\
+---------+--------+------------+----------+
| Account | Active | Processes  | Memory   |
+---------+--------+------------+----------+
| alice   | yes    |  99(1100%) | 1  (25%) |
| bob     | yes    |  99(9900%) | 1  (25%) |
| carol   | yes    | 100(10000%) | 1  (25%) |
+---------+--------+------------+----------+" "$(kivctl status -a)"
EOF
}

@test "figures of any size are shown, and percentages of huge ones wrap at 64 bits" {
    in_host <<'EOF'
account alice
stand_in_cgroups
figures alice pids.current=9223372036854775806 pids.max=9223372036854775807 \
    memory.current=9223372036854775807 memory.high=1
same report "Account: alice
Active: yes
Processes: 9223372036854775806 (0%)
Memory: 9223372036854775807 (-100%)" "$(kivctl status alice)"
# a number that does not fit into a signed one is negative
figures alice pids.current=18446744073709551615 pids.max=4 memory.current=-1025 memory.high=1024
same report "Account: alice
Active: yes
Processes: -1 (-25%)
Memory: -1025 (-100%)" "$(kivctl status alice)"
EOF
}

@test "on a terminal yes is green and no is red, and the table's padding has no colour" {
    in_host <<'EOF'
account alice
account bob
stand_in_cgroups
figures alice pids.current=5 pids.max=20
green=$'\e[32m' red=$'\e[31m' reset=$'\e[0m'
terminal() { script -qec "$1" /dev/null | tr -d '\r'; }
same "active" "Account: alice
Active: ${green}yes$reset
Processes: 5 (25%)" "$(terminal "kivctl status alice")"
same "not active" "Account: bob
Active: ${red}no$reset" "$(terminal "kivctl status bob")"
table="\
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | ${green}yes   $reset |  5  (25%) |          |
| bob     | ${red}no    $reset |           |          |
+---------+--------+-----------+----------+"
same table "$table" "$(terminal "kivctl status -a")"
same "with standard error elsewhere" "$table" "$(terminal "kivctl status -a 2>/tmp/err")"
EOF
}

@test "output to a file or a pipe has no colours, even if standard error is a terminal" {
    in_host <<'EOF'
account alice
account bob
mkdir /run/kiv
touch /run/kiv/alice@mnt
script -qec "kivctl status -a >/tmp/file; kivctl status bob | cat >/tmp/pipe" /tmp/terminal >/dev/null
same "file" "\
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | yes    |           |          |
| bob     | no     |           |          |
+---------+--------+-----------+----------+" "$(cat /tmp/file)"
same "pipe" "Account: bob
Active: no" "$(cat /tmp/pipe)"
refused grep -q $'\e' /tmp/file /tmp/pipe /tmp/terminal
EOF
}

@test "labels and words are in the caller's language, and columns fit their bytes" {
    in_host <<'EOF'
mkdir -p /usr/share/locale/de/LC_MESSAGES
msgfmt -o /usr/share/locale/de/LC_MESSAGES/kivctl.mo - <<'END'
msgid ""
msgstr "Content-Type: text/plain; charset=UTF-8\n"
msgid "Account:"
msgstr "Konto, einzeln:"
msgid "Active:"
msgstr "Läuft:"
msgid "Processes:"
msgstr "Prozesse, einzeln:"
msgid "Memory:"
msgstr "Speicher, einzeln:"
msgid "Account"
msgstr "Kündchen"
msgid "Active"
msgstr "?"
msgid "Processes"
msgstr "Pröz."
msgid "Memory"
msgstr "Arbeitsspeicher"
msgid "yes"
msgstr "läuft"
msgid "no"
msgstr "nein"
END
account alice
account bob
stand_in_cgroups
figures alice pids.current=5 pids.max=20 memory.current=1023 memory.high=max
german
same "report" "Konto, einzeln: alice
Läuft: läuft
Prozesse, einzeln: 5 (25%)
Speicher, einzeln: 1023" "$(kivctl status alice)"
same "report of bob" "Konto, einzeln: bob
Läuft: nein" "$(kivctl status bob)"
same table "\
+-----------+--------+----------+-----------------+
| Kündchen | ?      | Pröz.   | Arbeitsspeicher |
+-----------+--------+----------+-----------------+
| alice     | läuft | 5  (25%) |     1023    (∞) |
| bob       | nein   |          |                 |
+-----------+--------+----------+-----------------+" "$(kivctl status -a)"
EOF
}

@test "debug mode names each account before it is examined" {
    in_host <<'EOF'
account alice
echo nobody-here >>"$registry"
account bob
capture kivctl -d status alice
same stdout "collecting status for container: alice
Account: alice
Active: no" "$out"
capture kivctl -d status -a
same status 71 "$status"
same stdout "\
collecting status for container: alice
collecting status for container: nobody-here
collecting status for container: bob
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | no     |           |          |
| bob     | no     |           |          |
+---------+--------+-----------+----------+" "$out"
same stderr "kivctl: nobody-here: nobody-here: unknown user" "$err"
EOF
}

@test "a report names its account before its figures are written" {
    in_host <<'EOF'
account alice
strace -o /tmp/trace -e trace=write kivctl status alice >/tmp/out
same "writes" 'write(1, "Account: alice\n", 15)
write(1, "Active: no\n", 11)' "$(sed -n 's/ *= [0-9]*$//p' /tmp/trace)"
EOF
}

@test "the table of a thousand accounts is written at once" {
    in_host <<'EOF'
for number in {1001..2000}; do
    echo "customer-$number:x:$((20000 + number)):100::/home/none:/bin/sh" >>/etc/passwd
    echo "customer-$number" >>"$registry"
done
strace -o /tmp/trace -e trace=write,writev kivctl status -a >/tmp/out
same "lines" 1004 "$(wc -l </tmp/out)"
same "bytes" $((1004 * 50)) "$(wc -c </tmp/out)"
(($(grep -c '^write' /tmp/trace) < 4))
EOF
}
