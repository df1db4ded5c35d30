"""Which line, and which exit status, follows a failed call: where kivctl's texts name the failure.

Each row: the commands, a pattern for the call as strace writes it, errors for which the row does not hold, the
line (for `re.search`; {E} stands for the system's error text), and the exit status of the run.
"""

import errno
import os
import re

import account_host

ANY = ()
MISSING = ("ENOENT",)

ROWS = [
    # kiv-run, whose other failures are those of exec
    ("run|run -t", r'^openat\(.*"/etc/login.defs"', MISSING, r"^kiv-run: cannot open /etc/login.defs: {E}$", 125),
    ("run|run -t", r'^execve\("/bin/bash"', ("EACCES",), r"^kiv-run: /bin/bash: {E}$", 127),
    ("run|run -t", r'^execve\("/bin/bash"', MISSING, r"^kiv-run: /bin/bash: {E}$", 126),
    ("run -t", r"^socketpair\(", ANY, r"^kiv-run: socketpair\(\) failed: {E}$", 125),
    ("run -t", r"^(clone|fork)", ANY, r"^kiv-run: fork\(\) failed: {E}$", 125),
    ("run -t", r"^signalfd4\(", ANY, r"^kiv-run: signalfd\(\) failed: {E}$", 125),
    ("run -t", r"^(recvmsg|sendmsg)\(", ANY, r"^kiv-run: cannot hand the terminal over: {E}$", 125),
    ("run -t", r'^openat\(.*"/dev/ptmx"', ANY, r"^kiv-run: cannot open a terminal of the container: {E}$", 125),
    ("run -t", r"^ioctl\(.*(TIOCGPTPEER|TIOCSCTTY)", ANY,
     r"^kiv-run: cannot open a terminal of the container: {E}$", 125),
    # in the process inside: a descriptor that would stay the caller's
    ("run -t forked", r"^dup2\(\d+, [012]\)", ANY, r"^kiv-run: cannot open a terminal of the container: {E}$", 125),
    # the host's preparation
    ("start", r'^(newfstatat|stat)\(.*"/run/kiv",', MISSING, r"^kivctl: /run/kiv: {E}$", 71),
    ("start", r'^mkdir\("/run/kiv"', ("EEXIST",), r"^kivctl: /run/kiv: mkdir\(\) failed: {E}$", 71),
    ("start", r'^openat\(.*"/proc/self/mountinfo"', ANY, r"^kivctl: cannot open '/proc/self/mountinfo': {E}$", 71),
    ("start", r'^mount\("/run/kiv", "/run/kiv", NULL, MS_BIND', ANY, r"^kivctl: /run/kiv: mount\(\) failed: {E}$", 71),
    ("start", r'^mount\("/run/kiv", .*MS_PRIVATE', ANY, r"^kivctl: /run/kiv: cannot make private: {E}$", 71),
    ("start", r"^ioctl\(.*SIOCGIFMTU", ANY, r"^MTU detection failed: ioctl\(\): {E}$", 0),
    # the lock and the mark
    ("start|exec|stop", r'^openat\(.*"/run/kiv/\.lock", O_RDWR', MISSING, r"^kivctl: /run/kiv: cannot lock: {E}$", 71),
    ("start|exec|stop", r"^fcntl\(.*F_OFD_SETLK,", ("EINTR",), r"^kivctl: /run/kiv: cannot lock: {E}$", 71),
    ("start|exec|stop", r'^openat\(.*"/run/kiv", O_RDONLY', MISSING, r"^kivctl: /run/kiv: {E}$", 71),
    ("start", r"^fgetxattr\(", ("EOPNOTSUPP",), r"^kivctl: /run/kiv: {E}$", None),
    ("exec|stop", r"^fgetxattr\(", ("EOPNOTSUPP",), r"^kivctl: /run/kiv: {E}$", 71),
    ("start", r"^fsetxattr\(.*\.unfinished\.alice", ("EOPNOTSUPP",),
     r"^kivctl: /run/kiv: cannot mark a container that is being started: {E}$", 71),
    # the namespaces
    ("start", r'^newfstatat\(.*"/run/kiv/alice@net"', MISSING, r"^kivctl: /run/kiv/alice@net: {E}$", 71),
    ("start", r'^newfstatat\(.*"/run/kiv/alice@ipc"', MISSING, r"^kivctl: /run/kiv/alice@ipc: {E}$", 71),
    ("start", r'^newfstatat\(.*"/run/kiv/alice@mnt"', MISSING, r"^kivctl: /run/kiv/alice@mnt: {E}$", 71),
    ("start", r'^openat\(.*"/run/kiv/alice@(net|ipc|mnt)", .*O_EXCL', ("EEXIST",),
     r"^kivctl: /run/kiv/alice@(net|ipc|mnt): cannot create: {E}$", 71),
    ("start", r"^pipe2\(.*O_CLOEXEC", ANY, r"^kivctl: pipe\(\) failed: {E}$", 71),
    ("start", r"^pipe2\(.*, 0\)", ANY, r"^kivctl: cannot create pipe for std(out|err)$", 71),
    ("start", r"^(clone|fork|vfork)", ANY, r"^(kivctl: )?fork\(\) failed: {E}$", None),
    ("start", r'^mount\("/proc/\d+/ns/(net|ipc|mnt)"', ANY,
     r"^kivctl: /proc/\d+/ns/(net|ipc|mnt): mount\(/run/kiv/alice@(net|ipc|mnt)\) failed: {E}$", 71),
    ("start", r"^unshare\(CLONE_NEWNS\|CLONE_NEWIPC", ANY, r"^unshare\(\) failed: {E}$", 71),
    # the root
    ("start", r'^mount\("none", "/", NULL, MS_REC\|MS_SLAVE', ANY, r"^mount\(unshare\) failed: {E}$", 0),
    ("start", r'^umount2\("/run/kiv", 0', ANY, r"^umount\(kiv\) failed: {E}$", 0),
    ("start", r'^mount\(NULL, "/mnt", "tmpfs"', ANY, r"^kivctl: Cannot create tmpfs at /mnt: {E}$", 0),
    ("start", r'^mkdir\("/mnt/root"', ANY, r"^kivctl: mkdir\(root\) failed: {E}$", 0),
    ("start", r'^mount\("/", "/mnt/root"', ANY, r"^kivctl: bind-mount\(root\) failed: {E}$", 0),
    ("start", r'^mkdir\("/mnt/kiv", ', ANY, r"^kivctl: mkdir\(kiv\) failed: {E}$", 0),
    ("start", r'^mkdir\("/mnt/temp-root"', ANY, r"^kivctl: mkdir\(temp-root\) failed: {E}$", 0),
    ("start", r'^mount\("overlay"', ANY, r"^kivctl: overlay-mount\(temp-root\) failed: {E}$", 0),
    ("start", r'^mount\(NULL, .*"devpts"', ANY, r"^mount\(/dev/pts\) failed: {E}$", 0),
    ("start", r'^mount\(NULL, .*"proc"', ANY, r"^remount\(/proc\) failed: {E}$", 0),
    ("start", r'^mkdir\("/mnt/empty-dir"', ANY, r"^kivctl: mkdir\(/mnt/empty-dir\) failed: {E}$", 0),
    ("start", r'^mount\(NULL, "/mnt/temp-root/run"', ANY, r"^kivctl: Cannot create tmpfs at /run: {E}$", 0),
    ("start", r"^fchown\(", ANY, r"^WARN: fchown\(/mnt/temp-root/run/utmp\) failed: {E}$", 0),
    ("start", r'^pivot_root\("\.", "\."\)', ANY, r"^kivctl: open\(newRoot\) failed: {E}$", 0),
    ("start", r'^mount\(NULL, "\."', ANY, r"^kivctl: mount\(MS_SLAVE\|MS_REC\) failed: {E}$", 0),
    ("start", r'^umount2\("\.", MNT_DETACH', ANY, r"^kivctl: umount2\(\) failed: {E}$", 0),
    ("start", r'^chdir\("/"\)', ANY, r"^chdir\(/\) failed: {E}$", 0),
    # the layer
    ("start", r'^setxattr\(.*"trusted.overlay.opaque"', ANY, r"^setattr\(/mnt/kiv/.*\) failed: {E}$", 0),
    ("start", r'^mkdir\("/mnt/kiv/', ("EEXIST",), r"^mkdir\(/mnt/kiv/.*\) failed( \([12]\))?: {E}$", 0),
    # the shell
    ("exec", r'^openat\(.*"/run/kiv/alice@(net|ipc|mnt)"', MISSING, r"^kivctl: /run/kiv/alice@(net|ipc|mnt): {E}$", 71),
    ("exec", r"^setns\(", ANY, r"^kivctl: /run/kiv/alice@(net|ipc|mnt): setns\(\) failed: {E}$", 71),
    ("exec", r"^seccomp\(SECCOMP_SET_MODE_FILTER, 0, ", ("EFAULT", "ENOSYS"),
     r"^kivctl: system-call filter: seccomp\(\): {E}$", 71),
    ("exec", r"^capset\(", ANY, r"^kivctl: cannot reduce the capabilities: {E}$", 71),
    ("exec", r"^keyctl\(", ("ENOSYS",), r"^kivctl: cannot leave the caller's session keyring: {E}$", 71),
    ("exec", r"^close_range\(", ("ENOSYS",), r"^kivctl: close_range\(\) failed: {E}$", 71),
    ("exec", r"^(setgroups|setresgid)\(", ANY, r"^kivctl: setuid\(\) failed: {E}$", 71),
    ("exec", r"^getres[ug]id\(", ANY, r"^kivctl: setuid\(\) failed: Operation not permitted$", 71),
    ("exec", r"^setresuid\([1-9]", ANY, r"^kivctl: setuid\(\) failed: {E}$", 71),
    ("exec", r'^chdir\("/home/alice"\)', ANY, r"^chdir\(/home/alice\) failed: {E}$", 0),
    ("exec", r'^execve\("/bin/bash"', ANY, r"^ERROR during execv: {E}$", 255),
    # the end
    ("stop", r'^umount2\("/run/kiv/alice@', ("EINVAL",), r"^Cannot unmount /run/kiv/alice@(net|ipc|mnt): {E}$", 0),
    ("stop", r'^unlink\("/run/kiv/alice@(net|ipc|mnt)"', ANY, r"^Cannot delete /run/kiv/alice@(net|ipc|mnt): {E}$", 0),
    ("stop", r'^openat\(.*"/proc", .*O_DIRECTORY', ANY, r"^kivctl: Cannot open /proc: {E}$", 71),
    ("stop", r"^(clone|fork|vfork)", ANY, r"^fork\(\) failed: {E}$", 0),
    # the programs that read
    ("list", r'^openat\(.*"/etc/tarnwell/kiv.users"', ANY, r"^kiv-list: cannot open /etc/tarnwell/kiv.users: {E}$", 71),
    ("check", r'^openat\(.*"/etc/tarnwell/kiv.users"', ANY, r"^kiv-check: cannot open /etc/tarnwell/kiv.users: {E}$", 2),
    ("list|check", r"^write\(1, ", ANY, r"^kiv-(list|check): cannot write to standard output: {E}$", None),
    ("list", r"^getdents64\(", MISSING, r"^kiv-list: (cannot read /run/kiv|Cannot read /proc): {E}$", 71),
    ("list", r'^openat\(.*"/proc", .*O_DIRECTORY', ANY, r"^kiv-list: Cannot open /proc: {E}$", 71),
    ("check", r'^openat\(.*"/proc", .*O_DIRECTORY', ANY, r"^kiv-check: Cannot open /proc: {E}$", 2),
    # the new view
    ("refresh", r'^openat\(.*"/run/kiv/\.lock", O_RDWR', MISSING, r"^kiv-refresh: /run/kiv: cannot lock: {E}$", 71),
    ("refresh", r'^openat\(.*"/proc", .*O_DIRECTORY', ANY, r"^kiv-refresh: Cannot open /proc: {E}$", 71),
    ("refresh", r"^pipe2\(", ANY, r"^kiv-refresh: pipe\(\) failed: {E}$", 71),
    ("refresh", r"^(clone|fork|vfork)", ANY, r"^kiv-refresh: fork\(\) failed: {E}$", 71),
    ("refresh", r"^fsetxattr\(", ("EOPNOTSUPP", "EPERM"),
     r"^kiv-refresh: /run/kiv: cannot mark a container that is being refreshed: {E}$", 71),
    ("refresh", r'^umount2\("/run/kiv/alice@mnt"', ANY, r"^kiv-refresh: Cannot unmount /run/kiv/alice@mnt: {E}$", 71),
    ("refresh", r'^mount\("/proc/self/fd/\d+", "/run/kiv/alice@mnt"', ANY,
     r"^kiv-refresh: /proc/self/fd/\d+: mount\(/run/kiv/alice@mnt\) failed: {E}$", 71),
    ("refresh", r'^mount\(NULL, "/", NULL, MS_RDONLY\|MS_REMOUNT', ANY, r"^kiv-refresh: remount\(/\) failed: {E}$", 71),
    ("refresh", r"^pivot_root\(", ANY, r"^kiv-refresh: the new view could not be built, the earlier one stays$", 71),
]


def error_text(error):
    return os.strerror(getattr(errno, error))


def expected(command, role, call, error):
    """(pattern, status or None) of the first matching row, or None if no text names the failure."""
    found = row_of((command, f"{command} {role}"), call, error)
    if found is None and command in account_host.ENTRIES:
        found = row_of(("exec",), call, error)
        if found is not None:
            line, status = found
            found = line.replace("^kivctl: ", "^kiv-run: "), 125 if status == 71 else status
    return found


def row_of(commands, call, error):
    for row_command, row_call, excepted, line, status in ROWS:
        if set(commands) & set(row_command.split("|")) and error not in excepted and re.search(row_call, call):
            return line.replace("{E}", re.escape(error_text(error))), status
    return None
