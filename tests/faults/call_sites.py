"""Reads a trace of strace and decides which calls must fail, and how."""

import itertools
import re

# The likeliest errors of each call. Calls that are not listed cannot fail on a host or belong to
# the C library.
ERRORS = {
    "access": ("ENOENT", "EACCES"),
    "capget": ("EPERM", "EINVAL"),
    "capset": ("EPERM", "EINVAL"),
    "chdir": ("EACCES", "ENOENT"),
    "chmod": ("EPERM", "EROFS"),
    "chown": ("EPERM", "EROFS"),
    "clone": ("EAGAIN", "ENOMEM"),
    "clone3": ("EAGAIN", "ENOMEM"),
    "close": ("EINTR", "EIO"),
    "close_range": ("ENOSYS", "EINVAL"),
    "connect": ("ENOENT", "ECONNREFUSED"),
    "dup2": ("EBUSY", "EMFILE"),
    "dup3": ("EBUSY", "EMFILE"),
    "execve": ("ENOENT", "EACCES"),
    "fchdir": ("EACCES", "EPERM"),
    "fchmod": ("EPERM", "EROFS"),
    "fchown": ("EPERM", "EROFS"),
    "fcntl": ("ENOLCK", "EINTR"),
    "fgetxattr": ("EOPNOTSUPP", "EPERM"),
    "fremovexattr": ("EPERM", "ENODATA"),
    "fsetxattr": ("EOPNOTSUPP", "ENOSPC"),
    "fstatfs": ("EIO", "ENOSYS"),
    "getdents64": ("EIO", "ENOENT"),
    "getresgid": ("EFAULT", "ENOSYS"),
    "getresuid": ("EFAULT", "ENOSYS"),
    "getxattr": ("EOPNOTSUPP", "EPERM"),
    "ioctl": ("EPERM", "ENODEV"),
    "keyctl": ("EDQUOT", "ENOSYS"),
    "kill": ("ESRCH", "EPERM"),
    "lseek": ("EINVAL", "ESPIPE"),
    "mkdir": ("EACCES", "ENOSPC"),
    "mkdirat": ("EACCES", "ENOSPC"),
    "mknod": ("EPERM", "ENOSPC"),
    "mknodat": ("EPERM", "ENOSPC"),
    "mmap": ("ENOMEM", "EAGAIN"),
    "mount": ("EPERM", "ENOMEM"),
    "newfstatat": ("EACCES", "ENOENT"),
    "openat": ("EMFILE", "EACCES"),
    "openat2": ("EACCES", "ENOSYS"),
    "pidfd_open": ("ENOSYS", "EMFILE"),
    "pidfd_send_signal": ("ESRCH", "EPERM"),
    "pipe2": ("EMFILE", "ENFILE"),
    "pivot_root": ("EINVAL", "EPERM"),
    "poll": ("EINTR", "ENOMEM"),
    "prctl": ("EPERM", "EINVAL"),
    "read": ("EIO", "EINTR"),
    "readlink": ("EACCES", "ENOENT"),
    "recvmsg": ("ENOMEM", "ECONNRESET"),
    "rt_sigprocmask": ("EINVAL", "EFAULT"),
    "seccomp": ("EINVAL", "ENOMEM"),
    "sendmsg": ("EPIPE", "ENOBUFS"),
    "setgroups": ("EPERM", "ENOMEM"),
    "setitimer": ("EINVAL", "EFAULT"),
    "setns": ("EPERM", "EINVAL"),
    "setresgid": ("EPERM", "EAGAIN"),
    "setresuid": ("EPERM", "EAGAIN"),
    "setsid": ("EPERM",),
    "setxattr": ("EOPNOTSUPP", "ENOSPC"),
    "signalfd4": ("EMFILE", "ENOMEM"),
    "socket": ("EMFILE", "EAFNOSUPPORT"),
    "socketpair": ("EMFILE", "ENFILE"),
    "statfs": ("EACCES", "ENOSYS"),
    "statx": ("EACCES", "ENOSYS"),
    "umount2": ("EBUSY", "EPERM"),
    "unlink": ("EACCES", "EROFS"),
    "unshare": ("ENOSPC", "EPERM"),
    "vfork": ("EAGAIN", "ENOMEM"),
    "wait4": ("EINTR",),
    "write": ("EIO", "ENOSPC"),
}

# The first call of the program itself; before it the loader runs, which has its own exit status.
FIRST_OWN_CALL = 'openat(AT_FDCWD, "/dev/null", O_RDWR)'


class Site:
    """The nth call of that name in one process."""

    def __init__(self, name, number, text):
        self.name, self.number, self.text = name, number, text

    def shape(self):
        """What two similar sites have in common: the call and its subject, without numbers. realpath(3) has a readlink for
        each part of each path."""
        if self.name == "readlink":
            return self.name
        return re.sub(r"\d+", "0", re.sub(r"\) += .*", "", self.text))[:90]


def sites(trace, whole=False, names=ERRORS):
    """The sites of a process with these names, in order; of the whole trace or from the first own call."""
    # strace counts the calls after the execve that starts the program
    counts, found, own = {} if whole else {"execve": -1}, [], whole
    for line in trace.splitlines():
        called = re.match(r"(\w+)\(", line)
        if not called:
            continue
        name = called[1]
        counts[name] = counts.get(name, 0) + 1
        own = own or line.startswith(FIRST_OWN_CALL)
        if own and name in names:
            found.append(Site(name, counts[name], line))
    return found


def sites_of_children(trace):
    """The sites of the processes that the first one has forked, from a trace of all. A fault at the nth call of a name
    hits every process that gets so far; each site is taken once, and none that the loader of the first process reaches.
    Left out are read and write, whose failure leaves a file of the layer short as in a start, and close, which strace
    does not carry out: the other process would wait for the end of a pipe for ever."""
    lines = {}
    for line in trace.splitlines():
        process, _, call = line.partition(" ")
        lines.setdefault(process, []).append(call.lstrip())
    first, *children = lines.values()
    loaders = {}
    for line in itertools.takewhile(lambda call: not call.startswith(FIRST_OWN_CALL), first):
        name = line.partition("(")[0]
        loaders[name] = loaders.get(name, 0) + 1
    found = {}
    for calls in children:
        for site in sites("\n".join(calls), whole=True):
            if site.name not in ("read", "write", "close") and site.number > loaders.get(site.name, 0):
                found.setdefault((site.name, site.number), site)
    return list(found.values())


def until_shell(found):
    """The calls of exec up to the one that makes it the shell; later calls belong to the shell."""
    for index, site in enumerate(found):
        if site.name == "execve":
            return found[:index + 1]
    return found


def thin(found, most):
    """At most that many sites of one shape: the tenth whiteout fails like the second."""
    seen, kept = {}, []
    for site in found:
        shape = site.shape()
        seen[shape] = seen.get(shape, 0) + 1
        if seen[shape] <= most:
            kept.append(site)
    return kept


def one_of_each(found):
    """For the short selection: the first site of each call name."""
    seen = set()
    return [site for site in found if not (site.name in seen or seen.add(site.name))]
