#!/usr/bin/env bats
# kiv-check: each kind of finding about configuration and registry, with the problem that it warns
# of.
load helpers
export project

# conf LINE…: writes the configuration with these lines, the sections at the left edge.
conf() { printf '%s\n' "$@" >"$configuration"; }

# users LINE…: writes the registry with these lines.
users() { printf '%s\n' "$@" >"$registry"; }

# finds FINDING…: exactly these are found, without the name of the file, and the exit status fits
# them.
finds() {
    local wanted=0
    [[ $* != *": error: "* && $* != *": warning: "* ]] || wanted=1
    capture kiv-check
    same stderr "" "$err"
    same findings "$(printf '%s\n' "$@")" "$(sed -E 's|^/etc/tarnwell/kiv.||' <<<"$out")"
    same status "$wanted" "$status"
}
export -f conf users finds

@test "a correct configuration and registry have no finding" {
    in_host <<'EOS'
account alice 100.64.0.4/30
conf hide "    /etc/shadow" empty "    /home" "allowlist /etc/ssl" "    certs"
capture kiv-check
same status 0 "$status"
same output "" "$out$err"
same JSON "[]" "$(kiv-check --json)"
EOS
}

@test "the sample has no errors: paths that a host lacks are notes, which count only on request" {
    in_host <<'EOS'
cp "$project/dist/kiv.conf" "$configuration"
rm -rf /etc/gshadow- /etc/subuid- /usr/bin/newuidmap
capture kiv-check
same status 0 "$status"
same "other findings than notes" "" "$(grep -v ': note: ' <<<"$out" || true)"
grep -qF "kiv.conf:$(grep -n '^ */etc/gshadow-$' "$configuration" | cut -d: -f1): note: '/etc/gshadow-' does not exist on this host" <<<"$out"
same "without notes" "" "$(kiv-check -q)"
fails 1 kiv-check --strict >/dev/null
EOS
}

@test "misspelt paths and missing paths are reported differently" {
    in_host <<'EOS'
conf hide "    /etc/shdow" "    /ect/passwd" "    /etc/Hosts" "    /etc/absent" bind "    /etc/hostnam"
finds "conf:2: warning: '/etc/shdow' does not exist: is '/etc/shadow' meant?" \
    "conf:3: warning: '/ect/passwd' does not exist: is '/etc' meant?" \
    "conf:4: warning: '/etc/Hosts' does not exist: is '/etc/hosts' meant?" \
    "conf:5: note: '/etc/absent' does not exist on this host" \
    "conf:7: warning: '/etc/hostnam' does not exist: is '/etc/hostname' meant?"
conf "allowlist /etc" "    shdow" "    passwd"
finds "conf:2: warning: '/etc/shdow' does not exist: is '/etc/shadow' meant?"
EOS
}

@test "comments after items, white space, patterns, relative items, slashes and dots" {
    in_host <<'EOS'
conf hide "    /etc/shadow # passwords" "    " "    etc/gshadow" "    /etc/ssl/" "    /etc/../etc/group" \
    "    /etc/pass*" "    /etc/none*" "    /etc/host?" \
    bind "    /var/lib/*" "allowlist /dev" "    tty*" "    pts/0" "    null # nothing" cap_drop "    "
finds "conf:2: warning: '/etc/shadow # passwords': a comment behind an item is part of it: put the comment on a line of its own" \
    "conf:3: warning: a line of white space is an empty item: delete the line" \
    "conf:4: warning: 'etc/gshadow' is relative: write the path from the root on" \
    "conf:5: warning: '/etc/ssl/' has a slash at its end: leave it out" \
    "conf:6: warning: '/etc/../etc/group' has '..' in it: write the path that is meant" \
    "conf:7: error: '/etc/pass*' has no effect: there are no patterns, name each path" \
    "conf:8: error: '/etc/none*' has no effect: there are no patterns, name each path" \
    "conf:9: warning: '/etc/host?' is taken literally: there are no patterns, name each path" \
    "conf:11: warning: '/var/lib/*' is taken literally: there are no patterns, name each path" \
    "conf:13: warning: 'tty*' is taken literally: an allowlist has no patterns, list each name" \
    "conf:14: warning: 'pts/0' keeps nothing visible: an allowlist has names of entries, not paths" \
    "conf:15: warning: 'null # nothing': a comment behind an item is part of it: put the comment on a line of its own" \
    "conf:17: warning: a line of white space is an empty item: delete the line"
EOS
}

@test "a pattern is reported wherever it is written, and counts for no other item" {
    in_host <<'EOS'
conf hide "    /etc/host*" bind "    /etc/hosts" "allowlist /nothing*" "    name" empty "    /etc/ss?"
finds "conf:2: error: '/etc/host*' has no effect: there are no patterns, name each path" \
    "conf:4: note: '/etc/hosts' is a plain file, which is visible without this item: bound, a root program inside could write it" \
    "conf:5: warning: '/nothing*' is taken literally: there are no patterns, name each path" \
    "conf:8: warning: '/etc/ss?' is taken literally: there are no patterns, name each path"
EOS
}

@test "sections, capabilities, system calls and expressions that kivctl or the library refuses" {
    in_host <<'EOS'
account alice 100.64.0.4/30
conf filter "    /etc/passwd ^("
expression=$( (kivctl status -a 2>&1 || true) | sed 's/.*: line 2: //')
conf cap_add "    CAP_NONSENSE" "    CAP_NET_RAW" seccomp "    deny mountt" "    deny" \
    hiden "    /etc/shadow" "    /etc/gshadow" "hide /etc" allowlist filter "    /etc/passwd ^(" "    /etc/group"
finds "conf:2: error: unknown capability 'CAP_NONSENSE': no account can be entered" \
    "conf:5: error: unknown system call 'mountt': no account can be entered" \
    "conf:6: error: 'deny' without a system call: no account can be entered" \
    "conf:7: error: unknown section 'hiden': there are allowlist, bind, cap_add, cap_drop, empty, filter, hide, seccomp" \
    "conf:10: error: unexpected arguments: no container can be started or entered" \
    "conf:11: error: missing argument to allowlist: no container can be started or entered" \
    "conf:13: error: $expression: no container can be started or entered" \
    "conf:14: error: value is not a pair: no container can be started or entered"
# the problem itself: status and start work, and nobody can enter
conf cap_add "    CAP_NONSENSE"
kivctl start alice >/dev/null
refused kivctl exec alice </dev/null >/dev/null 2>&1
finds "conf:2: error: unknown capability 'CAP_NONSENSE': no account can be entered"
conf filter "    /etc/passwd ^root:"
finds "conf:2: note: the item has no effect: what accounts see of host files is built in"
EOS
}

@test "items that shadow each other, and what then happens in a container" {
    in_host <<'EOS'
account alice 100.64.0.4/30
mkdir -p /srv/{a/x,b/x,c/x,d/x,e/x,f,g,h,i}
touch /srv/{a/x,b,c,d,e,f,g,h,i}/file
conf "allowlist /srv/g" "    x" "allowlist /srv/h" "    x" \
    hide "    /srv/a/x" "    /srv/a" "    /srv/b" "    /srv/b/x" "    /srv/c/x" "    /srv/e/x" "    /srv/f" "    /srv/f" "    /srv/g" "    /srv/i" \
    empty "    /srv/c" "    /srv/b/x" "    /srv/h" \
    bind "    /srv/d/x" "    /srv/d" "    /srv/e" "    /srv/i"
finds "conf:2: note: '/srv/g/x' does not exist on this host" \
    "conf:4: note: '/srv/h/x' does not exist on this host" \
    "conf:7: error: '/srv/a' is not hidden: an item below it comes first, delete that one, see line 6" \
    "conf:9: warning: '/srv/b/x' is not hidden but empty: it is listed under both, see line 18" \
    "conf:9: note: '/srv/b/x' is hidden already, see line 8" \
    "conf:11: error: '/srv/e/x' has no effect: a directory above it is bound, see line 23" \
    "conf:13: warning: '/srv/f' is listed twice: delete one of the two lines, see line 12" \
    "conf:14: error: '/srv/g' is not hidden: there is an allowlist of it, see line 1" \
    "conf:17: error: '/srv/c' is not emptied: an item below it comes first, delete that one, see line 10" \
    "conf:18: warning: '/srv/b/x' has no effect: a directory above it is hidden, see line 8" \
    "conf:19: error: '/srv/h' is not emptied: there is an allowlist of it, see line 3" \
    "conf:21: warning: '/srv/d/x' is covered: bind the directory above it first, or alone, see line 22" \
    "conf:24: warning: '/srv/i' is not bound: it is hidden, see line 15"
kivctl start alice >/dev/null 2>&1
same "not hidden" "/srv/a" "$(enter alice ls -d /srv/a)"
same "not emptied" "/srv/c/file" "$(enter alice ls /srv/c/file)"
same "no effect" "/srv/e/x" "$(enter alice ls -d /srv/e/x)"
same "not hidden" "/srv/g" "$(enter alice ls -d /srv/g)"
refused enter alice ls /srv/b /srv/f /srv/i/file >/dev/null 2>&1
EOS
}

@test "items that hide, empty or bind nothing at all" {
    in_host <<'EOS'
account alice 100.64.0.4/30
mkdir -p /srv/real /run/postgresql
touch /srv/real/secret /srv/file
ln -s real /srv/link
conf hide "    /srv/link/secret" "    /proc/meminfo" empty "    /srv/file" bind "    /run/postgresql" "    /run/mysqld" "    /"
mkdir -p /run/mysqld
finds "conf:2: error: '/srv/link/secret' is not hidden: a directory in the path is a symbolic link, name the path that it leads to" \
    "conf:3: warning: '/proc/meminfo' is not hidden: the container has its own /proc in that place" \
    "conf:5: error: '/srv/file' is not a directory: only directories can be emptied" \
    "conf:7: warning: '/run/postgresql' is not bound: the container's /run is its own and has a place for /run/mysqld only" \
    "conf:9: error: the root directory cannot be an item"
kivctl start alice >/dev/null 2>&1
same "not hidden" /srv/real/secret "$(enter alice ls /srv/real/secret)"
refused enter alice ls /run/postgresql >/dev/null 2>&1
enter alice ls /proc/meminfo >/dev/null
EOS
}

@test "binds of paths that the host's root obeys" {
    in_host <<'EOS'
conf bind "    /var/spool/cron" "    /etc/systemd/system" "    /etc" "    /root" "    /etc/hostname" "    /usr/share/doc" "    /srv"
mkdir -p /etc/systemd/system /var/spool/cron
finds "conf:2: error: '/var/spool/cron' gives away the host: the host runs jobs from there, and a root program inside could write it" \
    "conf:3: error: '/etc/systemd/system' gives away the host: the host's services read their configuration there, and a root program inside could write it" \
    "conf:3: warning: '/etc/systemd/system' is covered: bind the directory above it first, or alone, see line 4" \
    "conf:4: error: '/etc' gives away the host: the host runs jobs from there, and a root program inside could write it" \
    "conf:5: error: '/root' gives away the host: it is the administrator's home, and a root program inside could write it" \
    "conf:6: note: '/etc/hostname' is a plain file, which is visible without this item: bound, a root program inside could write it" \
    "conf:7: error: '/usr/share/doc' gives away the host: the host's programs are there, and a root program inside could write it"
EOS
}

@test "binds that are links to paths that the host obeys, and homes of users" {
    in_host <<'EOS'
account alice 100.64.0.4/30
mkdir -p /srv/jobs /etc/nginx /srv/homes/bob
ln -s /etc/nginx /srv/proxy
ln -s / /srv/all
rm -rf /etc/cron.d
ln -s /srv/jobs /etc/cron.d
useradd --no-create-home --home-dir /srv/homes/bob bob
ln -s homes /srv/people
sed -i '\|:/home/alice:|!{\|:/home/|d}' /etc/passwd # users of this machine
conf bind "    /srv/proxy" "    /srv/jobs" "    /srv/all" "    /home" "    /home/alice" "    /srv/people" "    /etc/apt"
finds "conf:2: error: '/srv/proxy' gives away the host: the host's services read their configuration there, and a root program inside could write it" \
    "conf:3: error: '/srv/jobs' gives away the host: the host runs jobs from there, and a root program inside could write it" \
    "conf:4: error: '/srv/all' gives away the host: it is the host's root directory, and a root program inside could write it" \
    "conf:5: warning: '/home' has the home of 'alice': every container shows it" \
    "conf:6: warning: '/home/alice' has the home of 'alice': every container shows it" \
    "conf:7: warning: '/srv/people' has the home of 'bob': every container shows it" \
    "conf:8: error: '/etc/apt' gives away the host: the host runs jobs from there, and a root program inside could write it"
# the problem itself
conf bind "    /srv/proxy"
kivctl start alice >/dev/null 2>&1
touch /etc/nginx/new
enter alice ls /srv/proxy/new
EOS
}

@test "users, names and settings of the registry" {
    in_host <<'EOS'
for name in alice bob tenletters; do useradd "$name"; done
users "alice net=100.64.0.4/30" "ghost net=100.64.0.8/30" "root net=100.64.0.12/30" "# a comment" "a@b net=100.64.0.16/30" \
    "tenletters net=100.64.0.20/30" "john doe net=100.64.0.24/30" "alice net=100.64.0.28/30" "bob"
finds "users:2: error: there is no user 'ghost': delete the line, or add the user" \
    "users:3: error: 'root' is root: root cannot have a container" \
    "users:5: error: 'a@b': a user name with '@' cannot have a container" \
    "users:6: error: 'tenletters' has ten characters, which makes an interface name that is too long: the container gets no network, rename the user" \
    "users:7: warning: unknown setting 'doe': the only one is net=, and a user name cannot have blanks" \
    "users:7: error: there is no user 'john': delete the line, or add the user" \
    "users:8: warning: 'alice' is listed already, see line 1: delete one of the two lines" \
    "users:9: error: 'bob' has no network: add net= and a network, or the account cannot be started"
# the problem itself
users "tenletters net=100.64.0.20/30"
install -d -o tenletters /home/tenletters/tmp
kivctl start tenletters >/dev/null 2>&1
refused enter tenletters ip address show veth0 2>/dev/null
EOS
}

@test "two names with one interface name" {
    in_host <<'EOS'
useradd averylongname
users "averylongname net=100.64.0.4/30"
short=$( (kiv-list --json averylongname || true) | sed -n 's/.*"interface": "veth-\(.*\)".*/\1/p')
echo "$short:x:4000:4000::/:/bin/sh" >>/etc/passwd
users "averylongname net=100.64.0.4/30" "$short net=100.64.0.8/30"
finds "users:2: error: '$short' and 'averylongname' have the same interface name, see line 1: only one can run, rename a user"
EOS
}

@test "networks that are too small, outside, overlapping or in use" {
    in_host <<'EOS'
for name in a b c d e f g h i; do useradd "u$name"; done
ip link add busy type veth peer name other
ip address add 100.64.9.1/24 dev busy
ip link set busy up
ip route add 100.65.0.0/16 via 192.0.2.1
users "ua net=100.64.0.4/30" "ub net=100.64.0.4/30" "uc net=100.64.0.0/28" "ud net=100.64.1.0/31" "ue net=100.64.1.4/32" \
    "uf net=10.0.0.4/30" "ug net=100.64.9.64/30" "uh net=100.65.7.0/30" "ui net=100.64.2.5/30"
finds "users:3: error: '100.64.0.0/28' overlaps the network of 'ua', see line 1: one of the two is cut off, choose another" \
    "users:3: error: '100.64.0.0/28' overlaps the network of 'ub', see line 2: one of the two is cut off, choose another" \
    "users:4: error: '100.64.1.0/31' is too small: a network needs four addresses, a /30" \
    "users:5: error: '100.64.1.4/32' is too small: a network needs four addresses, a /30" \
    "users:6: error: '10.0.0.4/30' is not within 100.64.0.0/10: the container has no way out, and the host's ports are open to it" \
    "users:7: error: '100.64.9.64/30' is in use on the host, at busy: choose another network" \
    "users:8: error: '100.65.7.0/30' is in use on the host, at uplink: choose another network" \
    "users:9: note: '100.64.2.5/30' means 100.64.2.4/30"
ip route add 100.66.0.0/16 dev busy table 52 # as VPNs do, with a rule before the main table
ip route add blackhole 100.64.0.0/10 # under all others
users "ua net=100.66.0.4/30" "ub net=100.67.0.4/30"
finds "users:1: error: '100.66.0.4/30' is in use on the host, at busy: choose another network"
users "ua net=100.64.0.4/30" "ub net=100.64.0.4/30"
finds "users:2: error: '100.64.0.4/30' overlaps the network of 'ua', see line 1: one of the two is cut off, choose another"
users "ua net=192.0.2.0/30" "ub net=nonsense"
finds "users:1: error: '192.0.2.0/30' is not within 100.64.0.0/10: the container has no way out, and the host's ports are open to it" \
    "users:1: error: '192.0.2.0/30' is in use on the host, at uplink: choose another network" \
    "users:2: error: malformed network 'nonsense': write one as 100.64.0.4/30"
EOS
}

@test "a running container's own network does not count as in use, and one that another container uses does" {
    in_host <<'EOS'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start alice >/dev/null
capture kiv-check
same output "" "$out$err"
users "alice net=100.64.0.12/30" "bob net=100.64.0.4/30"
finds "users:2: error: '100.64.0.4/30' is in use on the host, at veth-alice: choose another network"
EOS
}

@test "a file given by name is the only one checked, and both formats say the same" {
    in_host <<'EOS'
users "ghost net=100.64.0.4/30"
printf 'hide\n  /etc/shdow\n' >/tmp/new.conf
capture kiv-check -c /tmp/new.conf
same status 1 "$status"
same findings "/tmp/new.conf:2: warning: '/etc/shdow' does not exist: is '/etc/shadow' meant?" "$out"
capture kiv-check --json --config /tmp/new.conf
same status 1 "$status"
same JSON '[
  {
    "file": "/tmp/new.conf",
    "line": 2,
    "severity": "warning",
    "message": "'"'/etc/shdow' does not exist: is '/etc/shadow' meant?"'"
  }
]' "$out"
capture kiv-check -r "$registry"
same findings "/etc/tarnwell/kiv.users:1: error: there is no user 'ghost': delete the line, or add the user" "$out"
same "both are" 2 "$(kiv-check -c /tmp/new.conf --registry "$registry" | wc -l)"
printf 'hide\n  /etc/\033[2Jx\n' >/tmp/new.conf
refused grep -q $'\033' <<<"$(kiv-check -c /tmp/new.conf)"
EOS
}

@test "a failed check is status 2 and one line" {
    in_host <<'EOS'
capture kiv-check -c /absent
same status 2 "$status"
same stderr "kiv-check: /absent: cannot open file /absent" "$err"
capture kiv-check -r /absent
same status 2 "$status"
same stderr "kiv-check: cannot open /absent: No such file or directory" "$err"
printf 'hide\n  /etc/shdow\n' >/tmp/new.conf
capture kiv-check -c /tmp/new.conf -r /absent
same "status of the second file" 2 "$status"
same "what was found before" "/tmp/new.conf:2: warning: '/etc/shdow' does not exist: is '/etc/shadow' meant?" "$out"
same "its stderr" "kiv-check: cannot open /absent: No such file or directory" "$err"
capture sh -c 'kiv-check -c /tmp/new.conf >/dev/full'
same "status without a place for the output" 2 "$status"
same stderr "kiv-check: cannot write to standard output: No space left on device" "$err"
capture kiv-check --nonsense
same status 2 "$status"
same stderr "kiv-check: unknown option '--nonsense'" "$err"
capture kiv-check /etc/tarnwell/kiv.conf
same status 2 "$status"
same stderr "kiv-check: too many arguments" "$err"
capture setpriv --reuid nobody --clear-groups "$(command -v kiv-check)" --host
same status 2 "$status"
same stderr "kiv-check: only root may run this program" "$err"
fails 0 setpriv --reuid nobody --clear-groups "$(command -v kiv-check)"
same version "Tarnwell Account Container (KIV) version 3.3.0 (build 18139)" "$(kiv-check -v)"
same usage "Usage: kiv-check [options]" "$(kiv-check --help | head -n 1)"
EOS
}
