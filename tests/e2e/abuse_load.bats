#!/usr/bin/env bats
# Load: many mounts, many directory entries, starts at the same time, and rounds with cut
# connections.
load helpers
load with_abuse

# a host with functions for many mounts and files; in the shell they would take minutes
busy_host() {
    with_abuse <<<'
# mount_many COUNT: mounts on that many directories below /srv/many, itself a mount, so that all can
# be unmounted together
mount_many() {
    mkdir -p /srv/many
    mount -t tmpfs many /srv/many
    perl -e '\''
        require "syscall.ph";
        my $count = $ARGV[0];
        my ($source, $type, $options) = ("many", "tmpfs", "size=4k");
        for (1 .. $count) {
            my $place = "/srv/many/$_";
            mkdir $place;
            syscall(SYS_mount(), $source, $place, $type, 0, $options) == 0 or die "mount: $!\n";
        }'\'' "$1"
}
# fill DIRECTORY COUNT: creates that many empty files
fill() {
    perl -e '\''for (1 .. $ARGV[1]) { open my $file, ">", "$ARGV[0]/$_" or die "$!\n" }'\'' "$1" "$2"
}
# milliseconds COMMAND…: captures it, with a limit of one minute, and prints how long it took
milliseconds() {
    timed timeout 60 "$@"
    echo "$*: $took ms"
}
'"$(cat)"
}

@test "among 300 and among thousands of mounts a container is started, entered and stopped" {
    busy_host <<'EOF'
account alice 100.64.0.4/30
for count in 300 $(rounds 20000 2000); do
    mount_many "$count"
    milliseconds kivctl start alice
    has_run 0
    same stderr "" "$err"
    same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    same "mounts inside" $'/\n/dev/pts\n/home/alice\n/proc\n/run\n/tmp' \
        "$(enter_as_root alice awk '{print $5}' /proc/self/mountinfo | sort)"
    milliseconds kivctl start alice
    same "stderr of a second start" "" "$err"
    same "who is inside" alice "$(kivctl exec alice <<<'id -un')"
    milliseconds kivctl stop alice
    has_run 0
    same "files left" "" "$(files_of alice)"
    pair_is_gone alice
    umount --lazy /srv/many
done
recovers alice
EOF
}

@test "start reads the mount table correctly while others mount and unmount all the time" {
    busy_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
mount_many 300
kivctl start bob
bobs=$(stat -Lc %i /run/kiv/bob@{net,ipc,mnt})
mkdir -p /srv/storm/{1..40}
taskset --cpu-list "$all_processors" perl -e '
    require "syscall.ph";
    my ($source, $type, $options) = ("storm", "tmpfs", "size=4k");
    my @places = map { "/srv/storm/$_" } 1 .. 40;
    while (1) {
        for (@places) { syscall(SYS_mount(), $source, $_, $type, 0, $options) == 0 or die "mount: $!\n" }
        for (@places) { syscall(SYS_umount2(), $_, 2) == 0 or die "umount: $!\n" }
    }' & storm=$!
disown "$storm"
for ((round = $(rounds 100 10); round > 0; round--)); do
    capture timeout 20 kivctl start alice
    has_run 0
    [[ $err = "" || $err = "umount(kiv) failed: Device or resource busy" ]]
    same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    # the running container is recognised: nothing is bound a second time
    capture timeout 20 kivctl start -a
    has_run 0
    same "stderr of a second start" "" "$err"
    same "mounts in the runtime directory" 7 "$(grep -c ' /run/kiv' /proc/self/mountinfo)"
    capture timeout 20 kivctl stop alice
    has_run 0
    same "stderr of stop" "" "$err"
    pair_is_gone alice
done
runs "$storm"
same "namespaces of the other" "$bobs" "$(stat -Lc %i /run/kiv/bob@{net,ipc,mnt})"
kill -KILL "$storm"
recovers alice
recovers bob
EOF
}

@test "a home, an allowlist and a pattern with many directory entries take only seconds" {
    busy_host <<'EOF'
account alice 100.64.0.4/30
count=$(rounds 100000 20000)
mkdir /srv/{listed,pattern}
for directory in /home/alice /home/alice/tmp /srv/listed /srv/pattern; do fill "$directory" "$count"; done
printf '%s\n' "allowlist /srv/listed" "    1" "    2" hide "    /srv/pattern/*" >"$configuration"
milliseconds kivctl start alice
has_run 0
# deliberate: a pattern hides other paths than these
same stderr "recMkDir: '/mnt/root/mnt/root' doesn't exist" "$(sort -u <<<"$err")"
same "lines of it" "$count" "$(wc -l <<<"$err")"
same "entries of the home" "$count" "$(enter alice find /home/alice -maxdepth 1 -name "[0-9]*" | wc -l)"
same "entries of tmp" "$count" "$(enter alice find /tmp -maxdepth 1 -name "[0-9]*" | wc -l)"
same "entries that the list keeps" $'1\n2' "$(enter alice ls /srv/listed)"
milliseconds kivctl stop alice
has_run 0
recovers alice
EOF
}

@test "eight starts of one account at once make one container" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
for ((round = $(rounds 50 5); round > 0; round--)); do
    starts=()
    for start in {1..8}; do
        taskset --cpu-list "$all_processors" timeout 60 kivctl start alice >>/tmp/out 2>>/tmp/err & starts+=($!)
    done
    for start in "${starts[@]}"; do wait "$start"; done
    same "mounts in the runtime directory" 4 "$(grep -c ' /run/kiv' /proc/self/mountinfo)"
    same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
    same "rules" 2 "$(iptables-save | grep -c -- '-i veth-alice ')"
    same "source NAT rules" 1 "$(iptables-save | grep -c MASQUERADE)"
    same "address seen outside" 192.0.2.2 "$(enter alice bash -c 'cat </dev/tcp/198.51.100.1/80')"
    kivctl stop alice >/dev/null
    same "files left" "" "$(files_of alice)"
    pair_is_gone alice
done
same stderr "" "$(cat /tmp/err)"
recovers alice
EOF
}

@test "eight accounts started at once on an unprepared host get one container each" {
    with_abuse <<'EOF'
for number in {1..8}; do account "user$number" "100.64.0.$((number * 4))/30"; done
for ((round = $(rounds 50 2); round > 0; round--)); do
    starts=()
    for number in {1..8}; do
        taskset --cpu-list "$all_processors" timeout 60 kivctl start "user$number" >>/tmp/out 2>>/tmp/err & starts+=($!)
    done
    for start in "${starts[@]}"; do wait "$start"; done
    same "mounts in the runtime directory" 25 "$(grep -c ' /run/kiv' /proc/self/mountinfo)"
    same "source NAT rules" 1 "$(iptables-save | grep -c MASQUERADE)"
    same "other rules" 16 "$(iptables-save | grep -c -- '-i veth-user')"
    for number in {1..8}; do
        same "live namespaces" $'net\nipc\nmnt' "$(mounted "user$number")"
        same "who is inside" "user$number" "$(kivctl exec "user$number" <<<'id -un')"
    done
    capture timeout 60 kivctl stop -a
    has_run 0
    same "stderr of stop" "" "$err"
    same "files left" "" "$(ls /run/kiv)"
    for number in {1..8}; do pair_is_gone "user$number"; done
    unprepared
done
same "what was told" "" "$(sort -u /tmp/err | grep -vxF 'umount(kiv) failed: Device or resource busy' || true)"
recovers user1
EOF
}

@test "eight accounts that start and stop at once lose no packet rule, with iptables of either kind" {
    variants=nft
    if "$project/tests/host/simulated-host" -- iptables-legacy --table nat --list >/dev/null 2>&1; then
        variants="nft legacy"
    else
        echo "# the kernel has no legacy tables: only iptables-nft was tried" >&3
    fi
    for kind in $variants; do
        export kind
        with_abuse <<'EOF'
mkdir /tmp/kind
for tool in iptables iptables-save; do
    ln -s "$(command -v "${tool/iptables/iptables-$kind}")" "/tmp/kind/$tool"
done
PATH=/tmp/kind:$PATH
[[ $(iptables --version) = *"${kind/nft/nf_tables}"* ]]
for number in {1..8}; do account "user$number" "100.64.0.$((number * 4))/30"; done
all_at_once() {
    local number runs=()
    for number in {1..8}; do
        taskset --cpu-list "$all_processors" timeout 60 kivctl "$1" "user$number" >/dev/null 2>>/tmp/err & runs+=($!)
    done
    for run in "${runs[@]}"; do wait "$run"; done
}
for ((round = $(rounds 50 2); round > 0; round--)); do
    all_at_once start
    same "rules on the host" 16 "$(iptables-save | grep -c -- '-i veth-user')"
    for number in {1..8}; do
        same "rules in the container" 2 "$(nsenter --net="/run/kiv/user$number@net" iptables-save | grep -c -- '-s 127.0.0.1')"
    done
    all_at_once stop
    same "rules left" "" "$(iptables-save | grep veth- || true)"
    for number in {1..8}; do pair_is_gone "user$number"; done
done
same "what was said" "" "$(sort -u /tmp/err | grep -vxF 'umount(kiv) failed: Device or resource busy' || true)"
EOF
    done
}

@test "rounds in which stop cuts connections in mid-stream leave nothing in the way of the next start" {
    KIV_HOST_DATABASE=none with_abuse <<'EOF'
account alice 100.64.0.4/30
# sends without end, and reads what arrives
socat TCP-LISTEN:3306,bind=127.0.0.1,fork,reuseaddr SYSTEM:'yes & cat >/dev/null' 2>/dev/null &
kivctl start alice >/dev/null
kivctl stop alice >/dev/null
before=$(settled_state)
for ((round = $(rounds 50 3); round > 0; round--)); do
    capture timeout 30 kivctl start alice
    has_run 0
    same "stderr of start" "" "$err"
    resident alice net,ipc,mnt perl -e '
        use IO::Socket::INET;
        $| = 1;
        my $kind = shift;
        for (1 .. 5) {
            my $peer = IO::Socket::INET->new("127.0.0.1:3306") or die "connect: $!\n";
            push @peers, $peer;
            next if fork;
            if ($_ % 2) { print $peer "x" x 65536 while 1 } # unsent data
            sysread $peer, my $data, 4096; # unread data
            print "streaming\n" if $_ == 4;
            sleep 100;
        }
        sleep 100;'
    said streaming
    eventually eval '[ "$(nsenter --net=/run/kiv/alice@net ss -Htn state established | wc -l)" -ge 5 ]'
    capture timeout 30 kivctl stop alice
    has_run 0
    grep -qxE 'alice: terminating processes: [0-9]+(, [0-9]+){5}' <<<"$err"
    same "files left" "" "$(files_of alice)"
done
same "state of the host" "$before" "$(settled_state)"
recovers alice
EOF
}
