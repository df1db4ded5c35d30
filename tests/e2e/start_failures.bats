#!/usr/bin/env bats
# A start in which one step fails: the message, what is left, and which steps still run.
load helpers

# thrown CALL:ERROR[:when=N] PATH TEXT: the set-up child fails in that call on PATH, with that text,
# and leaves a covered root. The parent, which ignores the child's status, succeeds.
thrown() {
    export INJECT=$1 AT=$2 TEXT=$3
    in_host <<'EOF'
account alice 100.64.0.4/30
injected "$INJECT" -P "$AT" kivctl start alice
same status 0 "$status"
same stderr "kivctl: $TEXT" "$err"
same stdout "starting container: alice, network:100.64.0.4/30" "$out"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "view of the host" 0 "$(root_of alice)"
EOF
}

# warned CALL:ERROR[:when=N] TEXT [CHECK]: the container is complete except for that part. The
# child's mounts count: 1 makes them slave, 2 is /mnt, 3 the lower root, 4 the overlay, 5 the home,
# 6 its tmp, 7 the terminals, 8 proc, 9 the emptied path of proc, 10 /run, 11 the bind item, 12
# follows the pivot. The parent's are the three that pin the namespaces.
warned() {
    export INJECT=$1 TEXT=$2 CHECK=${3:-true}
    in_host <<'EOF'
account alice 100.64.0.4/30
printf 'bind\n /etc/hostname\nempty\n /proc/irq\n' >"$configuration"
prepared_runtime_directory
injected "$INJECT" kivctl start alice
same status 0 "$status"
same stderr "$TEXT" "$err"
same "type of the root" overlayfs "$(enter_as_root alice stat -f -c %T /)"
refused enter_as_root alice touch /made
eval "$CHECK"
EOF
}

@test "a workspace that cannot be mounted" {
    thrown mount:error=ENOMEM /mnt "Cannot create tmpfs at /mnt: Cannot allocate memory"
}

@test "a lower root that cannot be bound" {
    thrown mount:error=EPERM /mnt/root "bind-mount(root) failed: Operation not permitted"
}

@test "an overlay that cannot be mounted" {
    thrown mount:error=EINVAL /mnt/temp-root "overlay-mount(temp-root) failed: Invalid argument"
}

@test "a /run that cannot be mounted" {
    thrown mount:error=ENOSPC /mnt/temp-root/run \
        "Cannot create tmpfs at /run: No space left on device"
}

@test "directories of the workspace that cannot be made" {
    thrown mkdir:error=ENOSPC /mnt/root "mkdir(root) failed: No space left on device"
    thrown mkdir:error=ENOSPC /mnt/kiv "mkdir(kiv) failed: No space left on device"
    thrown mkdir:error=ENOSPC /mnt/temp-root "mkdir(temp-root) failed: No space left on device"
    thrown mkdir:error=EROFS /mnt/empty-dir "mkdir(/mnt/empty-dir) failed: Read-only file system"
}

@test "each step of the pivot" {
    thrown openat:error=EMFILE:when="$(opening / '"/", O_RDONLY|O_CLOEXEC|O_DIRECTORY')" / \
        "open(oldRoot) failed: Too many open files"
    thrown openat:error=EMFILE:when="$(opening /mnt/temp-root '"/mnt/temp-root", O_RDONLY|O_CLOEXEC|O_DIRECTORY')" /mnt/temp-root \
        "open(newRoot) failed: Too many open files"
    thrown fchdir:error=EACCES /mnt/temp-root "fchdir(newRoot) failed: Permission denied"
    thrown pivot_root:error=EBUSY . "open(newRoot) failed: Device or resource busy"
    thrown fchdir:error=EACCES:when=1 / "fchdir(oldRoot) failed: Permission denied"
    thrown mount:error=EPERM . "mount(MS_SLAVE|MS_REC) failed: Operation not permitted"
    thrown umount2:error=EPERM . "umount2() failed: Operation not permitted"
}

# opening PATH TEXT: prints which of the child's openat calls on PATH has that text.
opening() {
    export AT=$1 OPENED=$2
    in_host <<'EOF' | tail -1
account alice 100.64.0.4/30
strace -f -P "$AT" -e trace=openat -o /tmp/trace kivctl start alice
awk -v text="$OPENED" '/openat\(/ { ++calls[$1] } index($0, text) { print calls[$1] }' /tmp/trace
EOF
}

@test "an old root that is still there after it was detached is detached again" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected umount2:retval=0:when=1 -P . kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "mounts at /" 1 "$(enter_as_root alice awk '$5 == "/"' /proc/self/mountinfo | wc -l)"
refused enter alice touch /made
EOF
}

@test "an old root that cannot be detached ends in a covered root" {
    thrown umount2:retval=0 . "umount2() failed: Device or resource busy"
}

@test "mounts that stay shared with the host end the set-up before anything is mounted" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(grep -v /run/kiv /proc/self/mountinfo)
injected mount:error=EPERM:when=1 -P / kivctl start alice
same status 0 "$status"
same stderr "mount(unshare) failed: Operation not permitted
kivctl: mounts are shared with the host, giving up" "$err"
same "mounts of the host" "$before" "$(grep -v /run/kiv /proc/self/mountinfo)"
EOF
}

@test "mounts that are already private need not be made slave" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mount --make-rprivate /
injected mount:error=EPERM:when=1 -P / kivctl start alice
same status 0 "$status"
same stderr "mount(unshare) failed: Operation not permitted" "$err"
same "mounts of the host at /mnt" "" "$(grep ' /mnt' /proc/self/mountinfo || true)"
enter alice test -w /home/alice
refused enter alice touch /made
EOF
}

@test "a runtime directory that cannot be unmounted inside is reported and detached" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected umount2:error=EIO:when=1 -P /run/kiv kivctl start alice
same status 0 "$status"
same stderr "umount(kiv) failed: Input/output error" "$err"
enter alice test -w /home/alice
EOF
}

@test "a later container does not keep a stopped container's network alive" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a
test -e /sys/class/net/veth-alice
umount /run/kiv/alice@net /run/kiv/alice@ipc /run/kiv/alice@mnt
for ((i = 0; i < 100; i++)); do
    test -e /sys/class/net/veth-alice || break
    sleep 0.02
done
refused test -e /sys/class/net/veth-alice
test -e /sys/class/net/veth-bob
EOF
}

@test "a home that cannot be bound is reported and left out" {
    warned mount:error=EACCES:when=5 \
        "bind-mount(/home/alice to /mnt/temp-root/home/alice) failed: Permission denied" \
        'enter alice test -w /tmp'
}

@test "a tmp directory that cannot be bound is reported and left out" {
    warned mount:error=EACCES:when=6 "mount(/home/alice/tmp) to /tmp failed: Permission denied" \
        'enter alice test -w /home/alice; refused enter alice touch /tmp/x'
}

@test "terminals that cannot be mounted are reported and left out" {
    warned mount:error=ENODEV:when=7 "mount(/dev/pts) failed: No such device"
}

@test "a /proc that cannot be mounted is reported and left out" {
    warned mount:error=EPERM:when=8 "remount(/proc) failed: Operation not permitted
mount(/proc/irq) failed: No such file or directory" 'refused enter alice test -e /proc/self'
}

@test "a path in /proc that cannot be covered is reported and left out" {
    warned mount:error=EPERM:when=9 "mount(/proc/irq) failed: Operation not permitted"
}

@test "a bind item that cannot be bound is reported and left out" {
    warned mount:error=EPERM:when=11 "bind-mount(/etc/hostname) failed: Operation not permitted"
}

@test "a session file that cannot be given to its group is a warning" {
    warned fchown:error=EPERM "WARN: fchown(/mnt/temp-root/run/utmp) failed: Operation not permitted"
}

@test "a working directory that cannot be changed is reported, before and after" {
    warned chdir:error=EACCES:when=1 "chdir(/) failed: Permission denied"
    warned chdir:error=EACCES:when=2 "chdir(/) failed: Permission denied"
}

@test "a child that cannot unshare is neither pinned nor connected" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected unshare:error=ENOSPC kivctl start alice
same status 71 "$status"
same stderr "unshare() failed: No space left on device
kivctl: no new net namespace was created" "$err"
same "live namespaces" "" "$(mounted alice)"
refused test -e /sys/class/net/veth-alice
refused grep -q veth <(iptables-save)
EOF
}

@test "a child whose mount namespace is not new ends itself" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected unshare:retval=0 kivctl start alice
same status 71 "$status"
same stderr "mount inode hasn't changed!
kivctl: no new net namespace was created" "$err"
same "live namespaces" "" "$(mounted alice)"
EOF
}

@test "missing pipes, processes and files end the start before anything is created" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start bob # from now on the only pipes and children are those of the set-up
for failure in "pipe2:error=EMFILE:when=1|pipe() failed: Too many open files" \
    "pipe2:error=EMFILE:when=2|pipe() failed: Too many open files" \
    "clone:error=EAGAIN|fork() failed: Resource temporarily unavailable"; do
    injected "${failure%%|*}" kivctl start alice
    same status 71 "$status"
    same stderr "kivctl: ${failure#*|}" "$err"
    same "live namespaces" "" "$(mounted alice)"
done
EOF
}

@test "a namespace file that cannot be made ends the start" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -m 0700 /run/kiv
mount -t tmpfs -o ro,mode=0700 tmpfs /run/kiv
capture kivctl start alice
same status 71 "$status"
same stderr "kivctl: /run/kiv/alice@net: cannot create: Read-only file system" "$err"
EOF
}

@test "a namespace file that cannot be examined ends the start, whichever check fails" {
    in_host <<'EOF'
account alice 100.64.0.4/30
for look in 2 3; do # the first only decides whether the mount table must be read
    injected "newfstatat:error=EACCES:when=$look" -P /run/kiv/alice@net kivctl start alice
    same "status at look $look" 71 "$status"
    same "stderr at look $look" "kivctl: /run/kiv/alice@net: Permission denied" "$err"
    same "live namespaces" "" "$(mounted alice)"
done
EOF
}

@test "a namespace that cannot be pinned ends the start and leaves no process" {
    in_host <<'EOF'
account alice 100.64.0.4/30
injected mount:error=EINVAL -P /run/kiv/alice@ipc kivctl start alice
same status 71 "$status"
[[ $err =~ ^kivctl:\ (/proc/[0-9]+/ns/ipc):\ mount\(/run/kiv/alice@ipc\)\ failed:\ Invalid\ argument$ ]]
same "live namespaces" net "$(mounted alice)"
pid=${BASH_REMATCH[1]#/proc/}
refused test -e "/proc/${pid%%/*}"
EOF
}

@test "with -a an error in an account's child is printed once and runs nothing else there" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
account carol 100.64.0.12/30
injected mount:error=EPERM -P /mnt/temp-root/run kivctl start -a
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30
starting container: bob, network:100.64.0.8/30
starting container: carol, network:100.64.0.12/30" "$out"
same stderr "kivctl: alice: Cannot create tmpfs at /run: Operation not permitted
umount(kiv) failed: Device or resource busy
kivctl: bob: Cannot create tmpfs at /run: Operation not permitted
umount(kiv) failed: Device or resource busy
kivctl: carol: Cannot create tmpfs at /run: Operation not permitted" "$err"
for name in alice bob carol; do
    same "live namespaces of $name" $'net\nipc\nmnt' "$(mounted $name)"
    same "$name's view of the host" 0 "$(root_of $name)"
done
EOF
}

@test "a failing command inside skips the rest of the network but not the root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'case $* in "route add"*) exit 2 ;; esac; exec $real "$@"'
record sysctl
record iptables
capture kivctl start alice
same status 0 "$status"
same stderr "exit code 2: ip route add default via 100.64.0.5" "$err"
same "last call" "ip route add default via 100.64.0.5" "$(tail -1 /tmp/calls)"
enter alice test -w /home/alice
refused enter alice touch /made
EOF
}

@test "a child that cannot examine its own namespace reports it and ends, and nothing is pinned or marked" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start bob # from now on the only child is that of the set-up
echo 5000 >/proc/sys/kernel/ns_last_pid
injected newfstatat:error=EACCES -P /proc/5005/ns/mnt kivctl start alice # strace takes three numbers, kivctl 5004
grep -q '^5005 .*INJECTED' /tmp/trace
same status 71 "$status"
same stderr "/proc/5005/ns/mnt: stat() failed: Permission denied
kivctl: no new net namespace was created" "$err"
same "live namespaces" "" "$(mounted alice)"
same marks "" "$(marks)"
EOF
}

@test "a caller that ignores SIGCHLD does not make failures look like success" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record iptables 'case $* in *uplink*) exit 1 ;; esac; exec $real "$@"'
capture perl -e '$SIG{CHLD} = "IGNORE"; exec @ARGV' kivctl start alice
same status 71 "$status"
[[ $err == *"Error while adding MASQURADE rule"* ]]
EOF
}

@test "host tools get only the standard descriptors and the captured ones" {
    in_host <<'EOF'
account alice 100.64.0.4/30
# the recording shell runs "echo" and the pattern itself: no child, and one descriptor for the
# directory
record ip 'echo /proc/$$/fd/* >>/tmp/descriptors; exec $real "$@"'
ip link show >/dev/null # with the descriptors of this test
kivctl start alice
# the route query's standard output is captured, and it inherits that pipe under its original
# number, too
same "descriptors of the others" 1 "$(sed -E 's:/proc/[0-9]+/fd/::g' /tmp/descriptors | sed 2d | sort -u | wc -l)"
EOF
}
