#!/usr/bin/env bats
# The simulated host itself: what it offers to the other tests, and that it does not change the
# machine.
load helpers

setup() {
    host=$project/tests/host/simulated-host
    # every process of this test's hosts has it in its environment
    export TEST_MARK="$BATS_TEST_NUMBER-$$-$RANDOM"
}

# on_host SCRIPT: runs the script and sets `output`, `stderr` and `status` like `run`.
on_host() { run --separate-stderr "$host" -- bash -euc "$1"; }

# Prints the processes of this test's hosts that still exist.
left_processes() { env -u TEST_MARK grep -lzsx "TEST_MARK=$TEST_MARK" /proc/[0-9]*/environ; }

# left_cgroups PID: prints the cgroups of the host whose outermost process is or was PID.
left_cgroups() {
    unshare --mount --propagation private bash -c \
        'mount -t cgroup2 cgroup2 /mnt; find /mnt -maxdepth 1 -name "simulated-host.$1-*"' - "$1"
}

# start_host COMMAND…: starts a host in the background as the process $pid, and waits for the
# command's first line.
start_host() {
    mkfifo "$BATS_TEST_TMPDIR/said"
    env --default-signal=INT,QUIT "$host" -- "$@" >"$BATS_TEST_TMPDIR/said" 2>"$BATS_TEST_TMPDIR/errors" 3>&- &
    pid=$!
    read -r line <"$BATS_TEST_TMPDIR/said"
}

# ended_by SIGNAL: the host of start_host must end by the signal and leave nothing.
ended_by() {
    local status=0
    kill "-$1" "$pid"
    wait "$pid" || status=$?
    [ "$status" -eq $((128 + $(kill -l "$1"))) ]
    [ -z "$(left_processes)" ]
    [ -z "$(left_cgroups "$pid")" ]
    [ ! -s "$BATS_TEST_TMPDIR/errors" ]
}

@test "files that are written on the host do not exist afterwards" {
    local name=written.$TEST_MARK
    on_host "echo x | tee /$name /etc/$name /usr/$name /root/$name /home/$name /run/$name /tmp/$name '$project/$name'"
    [ "$status" -eq 0 ]
    local directory
    for directory in / /etc /usr /root /home /run /tmp "$project"; do
        [ ! -e "$directory/$name" ]
    done
}

@test "the machine's processes are not seen" {
    sleep 4711 3>&- &
    local sleeper=$!
    on_host 'ps -eo args='
    kill "$sleeper"
    [ "$status" -eq 0 ]
    [[ ${lines[0]} == *tests/host/inside* ]]
    [[ $output != *4711* ]]
}

@test "the machine's mounts and interfaces stay as they were" {
    local mounts interfaces
    mounts=$(cat /proc/self/mountinfo)
    interfaces=$(ip -oneline link)
    on_host 'mkdir /new; mount -t tmpfs new /new; ip link add extra type veth peer name other'
    [ "$status" -eq 0 ]
    diff <(echo "$mounts") /proc/self/mountinfo
    diff <(echo "$interfaces") <(ip -oneline link)
}

@test "no process and no cgroup is left when the command ends" {
    start_host bash -c 'mkdir -p /sys/fs/cgroup/a/b; setsid sleep 4711 & echo ready'
    [ "$line" = ready ]
    wait "$pid"
    [ -z "$(left_processes)" ]
    [ -z "$(left_cgroups "$pid")" ]
}

@test "a host that is ended by SIGTERM leaves nothing" {
    start_host bash -c 'mkdir -p /sys/fs/cgroup/a/b; setsid sleep 4711 & echo ready; sleep 4711'
    [ -n "$(left_processes)" ]
    [ -n "$(left_cgroups "$pid")" ]
    ended_by TERM
}

@test "a host that is ended by SIGINT leaves nothing" {
    start_host bash -c 'echo ready; sleep 4711'
    ended_by INT
}

@test "when a host's outermost process is killed all its processes end" {
    start_host bash -c 'echo ready; sleep 4711'
    kill -KILL "$pid"
    wait "$pid" || true
    for ((try = 0; try < 200; try++)); do
        [ -n "$(left_processes)" ] || break
        sleep 0.01
    done
    [ -z "$(left_processes)" ]
    # it cannot be removed then
    unshare --mount --propagation private bash -c \
        'mount -t cgroup2 cgroup2 /mnt; find /mnt/simulated-host.$1-* -depth -type d -exec rmdir {} +' - "$pid"
}

@test "the command's exit status is the host's" {
    run "$host" -- true
    [ "$status" -eq 0 ]
    run "$host" -- bash -c 'exit 42'
    [ "$status" -eq 42 ]
    on_host 'kill -KILL $$'
    [ "$status" -eq 137 ]
    [ -z "$stderr" ]
}

@test "the command has the caller's standard streams and nothing else is written to them" {
    local errors=$BATS_TEST_TMPDIR/errors
    [ "$(echo in | "$host" -- bash -c 'cat; echo err >&2' 2>"$errors")" = in ]
    [ "$(cat "$errors")" = err ]
}

@test "without a command it is a shell" {
    [ "$(echo 'uname -n' | "$host")" = simulated ]
}

@test "a shell on a terminal has job control" {
    run script --quiet --return --command "'$host'" /dev/null <<'EOF'
set -o | grep monitor
exit 7
EOF
    [ "$status" -eq 7 ]
    [[ $output =~ monitor[[:space:]]+on ]]
    [[ $output != *"no job control"* ]]
}

@test "a caller other than root gets one line" {
    # from standard input, in another directory: other users may not search root's home, where the
    # checkout may be
    cd /
    run --separate-stderr setpriv --reuid 65534 --regid 65534 --clear-groups bash -s -- -- true <"$host"
    [ "$status" -eq 1 ]
    [ -z "$output" ]
    [ "$stderr" = "simulated-host: needs root" ]
}

@test "a missing tool is reported in one line with its package" {
    local tools=$BATS_TEST_TMPDIR/tools tool
    mkdir "$tools"
    for tool in bash realpath dirname ip iptables mount; do
        ln -s "$(command -v "$tool")" "$tools/$tool"
    done
    # /usr/sbin and /sbin are always in PATH; socat is in neither
    run --separate-stderr env PATH="$tools" bash "$host" -- true
    [ "$status" -eq 1 ]
    [ "$stderr" = "simulated-host: needs socat (Debian package socat)" ]
}

@test "a missing feature of the kernel is reported in one line" {
    local tools=$BATS_TEST_TMPDIR/tools
    mkdir "$tools"
    cat >"$tools/mount" <<EOF
#!/bin/sh
case "\$*" in *lowerdir*) echo "no overlays here" >&2; exit 32 ;; esac
exec $(command -v mount) "\$@"
EOF
    chmod +x "$tools/mount"
    run --separate-stderr env PATH="$tools:$PATH" "$host" -- true
    [ "$status" -eq 1 ]
    [ "$stderr" = "simulated-host: cannot mount an overlay of the machine's root: no overlays here" ]
}

# checkout_in DIRECTORY: prints the name in it that leads to the checkout, if the checkout is below
# it: the only name that the host has there.
checkout_in() {
    local below=${project#"$1"/}
    [ "$below" = "$project" ] || printf %q "${below%%/*}"
}

@test "the host has its name, and the directories that kivctl uses are empty or absent" {
    on_host "uname -n; ls -A --ignore=$(checkout_in /home) /mnt /home; ! mountpoint -q /mnt
        ls -d /etc/tarnwell /run/kiv 2>/dev/null || true"
    [ "$status" -eq 0 ]
    [ "$output" = "simulated
/home:

/mnt:" ]
}

@test "temporary and run-time directories are fresh and have their usual modes" {
    on_host "stat -c '%a %n' /run /tmp /home /mnt /; ls -A --ignore=$(checkout_in /tmp) /run /tmp"
    [ "$output" = "755 /run
1777 /tmp
755 /home
755 /mnt
755 /
/run:

/tmp:" ]
}

@test "the working directory and the path are the caller's" {
    cd "$project/tests"
    PATH=/usr/bin:/bin on_host 'pwd; echo "$PATH"; test -x tests/host/simulated-host || test -x host/simulated-host'
    [ "$status" -eq 0 ]
    [ "${lines[0]}" = "$project/tests" ]
    [ "${lines[1]}" = /usr/bin:/bin:/usr/sbin:/sbin ]
}

@test "every mount is shared, as systemd leaves it" {
    on_host 'grep -vc " shared:" /proc/self/mountinfo || true; grep -c " master:" /proc/self/mountinfo || true'
    [ "$output" = "0
0" ]
}

@test "the root file system has device nodes of its own below those on /dev" {
    on_host '
mount --bind / /mnt
for directory in /dev /mnt/dev; do
    for name in null zero full random urandom tty console ptmx; do
        stat -c "%F %t:%T" "$directory/$name"
    done | sort -u | wc -l
    readlink "$directory/fd" "$directory/stdin" | tr "\n" " "
    stat -c %F "$directory/pts" "$directory/shm" | sort -u
done
stat -f -c %T /dev/pts
echo x >/dev/null; head -c 1 /mnt/dev/zero | wc -c'
    [ "$status" -eq 0 ]
    [ "$output" = "8
/proc/self/fd fd/0 directory
8
/proc/self/fd fd/0 directory
devpts
1" ]
}

@test "the host is the root of its cgroup hierarchy and can make cgroups" {
    on_host 'cat /proc/self/cgroup; mkdir -p /sys/fs/cgroup/user.slice/user-1000.slice
echo $$ >/sys/fs/cgroup/user.slice/user-1000.slice/cgroup.procs; cat /proc/self/cgroup'
    [ "$status" -eq 0 ]
    [[ $output == *0::/init.scope*0::/user.slice/user-1000.slice* ]]
}

@test "the uplink has an MTU of 1400 and the default route" {
    on_host 'cat /sys/class/net/uplink/{mtu,operstate}; ip -4 -oneline address show uplink; ip route show default
cat /proc/sys/net/ipv4/ip_forward; ls /sys/class/net'
    [ "${lines[0]}" = 1400 ]
    [ "${lines[1]}" = up ]
    [[ ${lines[2]} == *" 192.0.2.2/24 "* ]]
    [[ ${lines[3]} == "default via 192.0.2.1 dev uplink "* ]]
    [ "${lines[4]}" = 1 ]
    [ "${lines[*]:5}" = "lo uplink" ]
}

@test "the server outside reports the host's address" {
    on_host 'cat </dev/tcp/198.51.100.1/80'
    [ "$output" = 192.0.2.2 ]
}

@test "a packet from the containers' range is answered only with source NAT" {
    on_host '
ip address add 100.64.0.5/32 dev lo
ask() { timeout 1 socat -u TCP:198.51.100.1:80,bind=100.64.0.5 - || echo "no answer"; }
ask
iptables -t nat -A POSTROUTING -s 100.64.0.0/10 -j MASQUERADE
ask
iptables -t nat -D POSTROUTING -s 100.64.0.0/10 -j MASQUERADE
iptables -t nat -S'
    [ "$output" = "no answer
192.0.2.2
-P PREROUTING ACCEPT
-P INPUT ACCEPT
-P OUTPUT ACCEPT
-P POSTROUTING ACCEPT" ]
}

@test "a small server answers on the database port" {
    on_host 'cat </dev/tcp/127.0.0.1/3306'
    [ "$output" = "small database server, caller 127.0.0.1" ]
    [ -z "$stderr" ]
}

@test "without a database nothing answers on its port" {
    KIV_HOST_DATABASE=none on_host 'ss --no-header --listening --numeric --tcp'
    [ "$status" -eq 0 ]
    [ -z "$output" ]
}

@test "a real database answers a query where one is installed" {
    export KIV_HOST_DATABASE=real
    if ! PATH=$PATH:/usr/sbin command -v mariadbd; then
        on_host true
        [ "$status" -eq 1 ]
        [ "$stderr" = "simulated-host: needs mariadbd (Debian package mariadb-server)" ]
        return
    fi
    on_host 'mariadb --host 127.0.0.1 --skip-column-names --execute "select 6 * 7"; ls /run/mysqld/mysqld.sock'
    [ "$output" = "42
/run/mysqld/mysqld.sock" ]
    KIV_HOST_DATABASE=auto on_host 'mariadb --skip-column-names --execute "select 6 * 7"'
    [ "$output" = 42 ]
}

@test "an unknown kind of database is refused in one line" {
    KIV_HOST_DATABASE=big on_host true
    [ "$status" -eq 1 ]
    [ "$stderr" = "simulated-host: KIV_HOST_DATABASE is 'big', not small, real, auto or none" ]
}

@test "an overlay of the host's root can be mounted on it" {
    on_host '
mkdir -p /run/top/etc /run/root
echo changed >/run/top/etc/hostname
mount --bind / /run/root
mount -t overlay -o lowerdir=/run/top:/run/root overlay /mnt
cat /mnt/etc/hostname
head -c 0 /mnt/dev/null && test -x /mnt/bin/bash && chroot /mnt /bin/echo inside'
    [ "$status" -eq 0 ]
    [ "$output" = "changed
inside" ]
}

@test "accounts can be made" {
    on_host 'useradd --create-home --shell /bin/bash marvin; setpriv --reuid marvin --regid marvin --init-groups id -un
stat -c %U /home/marvin'
    [ "$status" -eq 0 ]
    [ "$output" = "marvin
marvin" ]
    run id marvin
    [ "$status" -ne 0 ]
}

@test "a new mount namespace can be kept by a bind mount" {
    on_host '
nproc
mkdir /run/keep
mount --bind /run/keep /run/keep
mount --make-private /run/keep
for i in {1..20}; do
    touch "/run/keep/$i"
    unshare --mount="/run/keep/$i" true
done
grep -c " mnt:" /proc/self/mountinfo'
    [ "$status" -eq 0 ]
    [ "$output" = "1
20" ]
}

@test "orphans are collected" {
    on_host '
bash -c "true & exec sleep 0.05" &
bash -c "(sleep 0.02 &)"
wait
sleep 0.05
ps -eo stat= | grep -c Z || true'
    [ "$output" = 0 ]
}

@test "hosts that run at the same time do not see each other" {
    local i
    for i in 1 2 3 4; do
        "$host" -- bash -c "touch /run/\$1; ip link add veth\$1 type veth; sleep 0.3; ls /run; ls /sys/class/net; pgrep -c socat" \
            - "$i" >"$BATS_TEST_TMPDIR/$i" 3>&- &
    done
    wait
    for i in 1 2 3 4; do
        [ "$(tr '\n' ' ' <"$BATS_TEST_TMPDIR/$i")" = "$i lo uplink veth0 veth$i 2 " ]
    done
}
