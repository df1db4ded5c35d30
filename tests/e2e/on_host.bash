# Functions for test scripts on a simulated host.
set -eEuo pipefail
trap 'echo "failed: $BASH_COMMAND" >&2' ERR

# The tool under test, called without a path, so that texts with the program's name do not depend on
# the build folder.
PATH=$(dirname "$KIVCTL"):$PATH

configuration=/etc/tarnwell/kiv.conf
registry=/etc/tarnwell/kiv.users
mkdir -p /etc/tarnwell
: >"$configuration"
: >"$registry"

# account NAME [NET]: creates a user with a home and a tmp directory, and its line in the registry.
account() {
    useradd --create-home --shell /bin/bash "$1"
    install -d -o "$1" -g "$1" "/home/$1/tmp"
    echo "$1${2:+ net=$2}" >>"$registry"
}

# program_elsewhere: uses a copy of the program, for tests that cover or move /home, where the
# checkout may be.
program_elsewhere() {
    install -D -t /opt/kivctl "$KIVCTL" "$(ldd "$KIVCTL" | sed -nE 's/^[[:blank:]]*libkiv[^ ]* => (.*) \(0x.*/\1/p')"
    PATH=/opt/kivctl:$PATH
    export LD_LIBRARY_PATH=/opt/kivctl
    local checkout
    checkout=$(findmnt --noheadings --output TARGET --target "$KIVCTL")
    if [[ $checkout == /home/* ]]; then
        umount --lazy "$checkout"
        (cd /home && rmdir --parents "${checkout#/home/}")
    fi
}

# firewall: loads the shipped firewall.
firewall() { nft -f "$(dirname "${BASH_SOURCE[0]}")/../../dist/nftables/kivctl.nft"; }

# enter NAME COMMAND…: runs the command in the account's container as the account.
enter() {
    enter_as_root "$1" setpriv --reuid "$1" --regid "$(id -g "$1")" --init-groups "${@:2}"
}

enter_as_root() {
    nsenter --net="/run/kiv/$1@net" --ipc="/run/kiv/$1@ipc" --mount="/run/kiv/$1@mnt" "${@:2}"
}

# fails STATUS COMMAND…: the command must exit with that status.
fails() {
    local wanted=$1 status=0
    shift
    "$@" || status=$?
    same "exit status of $*" "$wanted" "$status"
}

# refused COMMAND…: the command must fail, with any status.
refused() {
    if "$@"; then
        echo "succeeded: $*" >&2
        return 1
    fi
}

# same WHAT WANTED GOT: both texts must be equal byte for byte, without trailing newlines.
same() {
    if [ "$2" != "$3" ]; then
        diff -u --label wanted --label got <(printf '%s\n' "$2") <(printf '%s\n' "$3") >&2 || true
        echo "differs: $1" >&2
        return 1
    fi
}

# capture COMMAND…: runs the command and sets `status`, `out` and `err`, without trailing newlines.
# shellcheck disable=SC2034 # for the caller
capture() {
    status=0
    "$@" >/tmp/captured.out 2>/tmp/captured.err || status=$?
    out=$(cat /tmp/captured.out)
    err=$(cat /tmp/captured.err)
}

# mounted NAME: prints the kinds of the account's namespace files that are mounts of their kind, in
# order.
mounted() {
    local kind
    for kind in net ipc mnt; do
        if grep -qE " $kind:\[[0-9]+\] /run/kiv/$1@$kind " /proc/self/mountinfo; then
            echo "$kind"
        fi
    done
}

# marks: prints the runtime directory's attributes, which are the marks of interrupted runs.
marks() { python3 -c 'import os; print(*os.listxattr("/run/kiv"))'; }

# record TOOL [COMMAND]: puts a TOOL first on PATH that appends its name and arguments to /tmp/calls
# and then runs COMMAND (shell text with the arguments in "$@"), by default the real tool.
record() {
    local real
    real=$(PATH=${PATH#/tmp/recorded:} command -v "$1")
    mkdir -p /tmp/recorded
    printf '#!/bin/bash\necho "%s $*" >>/tmp/calls\nreal=%s\n%s\n' "$1" "$real" \
        "${2:-exec $real \"\$@\"}" >"/tmp/recorded/$1"
    chmod +x "/tmp/recorded/$1"
    case $PATH in
        /tmp/recorded:*) ;;
        *) PATH=/tmp/recorded:$PATH ;;
    esac
}

# root_of NAME: prints mode and file-system type of "/" in the account's mount namespace, and the
# names in it. The program is loaded before it enters, because a covered root has no programs.
root_of() {
    perl -e '
        require "syscall.ph";
        open(my $file, "<", "/run/kiv/$ARGV[0]\@mnt") or die "no namespace file\n";
        syscall(SYS_setns(), fileno($file), 0x20000) == 0 or die "setns: $!\n";
        printf "%o", (stat("/"))[2] & 07777;
        opendir(my $root, "/") or die "opendir: $!\n";
        print " $_" for sort grep { !/^\.\.?$/ } readdir($root);
        print " writable" if open(my $made, ">", "/made");
        print "\n";
    ' "$1"
}

# injected CALL:ERROR[:when=N] [-P PATH] COMMAND…: captures the command while a system call fails in
# it and in its children. Each process counts its own calls; with PATH only calls with that path
# count.
injected() {
    local only=() inject=$1
    shift
    if [ "$1" = -P ]; then
        only=(-P "$2")
        shift 2
    fi
    capture strace -f -o /tmp/trace "${only[@]}" -e "inject=$inject" "$@"
    err=$(sed '/^strace: Requested path/d' <<<"$err")
}

# prepared_runtime_directory: prepares the directory like an earlier start, so that the next one
# mounts only its namespace files.
prepared_runtime_directory() {
    mkdir -m 0700 /run/kiv
    mount --bind /run/kiv /run/kiv
    mount --make-private /run/kiv
}

# with_lock NAME exclusive|shared COMMAND…: waits for the account's lock like a run of kivctl, and
# runs the command while it holds the lock.
with_lock() {
    python3 -c '
import fcntl, pwd, subprocess, sys
name, mode, *command = sys.argv[1:]
lock = open("/run/kiv/.lock", "r+")
fcntl.lockf(lock, fcntl.LOCK_EX if mode == "exclusive" else fcntl.LOCK_SH, 1, pwd.getpwnam(name).pw_uid)
sys.exit(subprocess.call(command))' "$@"
}

# eventually COMMAND…: repeats the command for up to ten seconds until it succeeds.
eventually() {
    local try
    for ((try = 0; try < 1000; try++)); do
        if "$@"; then
            return
        fi
        sleep 0.01
    done
    echo "has not come true: $*" >&2
    return 1
}

# speak LOCALE [CHARSET]: from here on programs run with this locale. Newer C libraries translate
# nothing for C.UTF-8.
speak() {
    local charset=${2:-UTF-8}
    mkdir -p /tmp/locales
    localedef -i "$1" -f "$charset" "/tmp/locales/$1.$charset"
    export LOCPATH=/tmp/locales LC_ALL="$1.$charset"
}

german() { speak de_DE; }
