#include "container/fork_unshare.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "container/namespaces.h"
#include "util/errors.h"
#include "util/output.h"
#include "util/runtime_directory.h"
#include "util/scope_guard.h"

namespace {

// NS_GET_MNTNS_ID of ioctl_ns(2), which headers before Linux 6.8 lack
constexpr unsigned long kGetNumber = _IOR(0xb7, 0x5, std::uint64_t);

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

/// What the child needs to know about its parent.
struct Parent {
    pid_t pid;
    std::uint64_t mountInode;
    FileDescriptor mounts;
    const FileDescriptor* startMounts;
};

Pipe openPipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw systemError("pipe() failed: ");
    }
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// Waits until a byte arrives or the other side closes its end.
void waitForPeer(const FileDescriptor& readEnd) {
    char byte = 0;
    while (::read(readEnd.get(), &byte, 1) == -1) {
    }
}

/// The sequence number of a mount namespace; 0 when the kernel does not report it.
std::uint64_t numberOf(int mountNamespace) {
    std::uint64_t number = 0;
    return ::ioctl(mountNamespace, kGetNumber, &number) == 0 ? number : 0;
}

bool ownMountsComeAfter(std::uint64_t earlier) {
    const FileDescriptor own(::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC));
    const std::uint64_t number = numberOf(own.get());
    return number == 0 || number > earlier;
}

/// Unshares the mount namespace again until processes in `pinning` can bind-mount it. The kernel
/// numbers mount namespaces in sequence and refuses, with EINVAL, to bind-mount one inside a
/// namespace of a higher number. From Linux 6.18 on each processor gets its numbers in batches, so
/// a new namespace may have a lower number. Hence the further attempts on other processors; the
/// caller's affinity is restored at the end. Does nothing when the kernel does not report the
/// numbers. If no processor gives a higher number, pinning fails.
void unshareUntilMountsCanBePinned(const FileDescriptor& pinning) {
    const std::uint64_t earlier = numberOf(pinning.get());
    cpu_set_t callers;
    if (earlier == 0 || ownMountsComeAfter(earlier) ||
        ::sched_getaffinity(0, sizeof(callers), &callers) != 0) {
        return;
    }
    const ScopeGuard putBack([&callers] { ::sched_setaffinity(0, sizeof(callers), &callers); });
    // also those outside the caller's affinity: the processor that created `pinning` may be one
    const auto processors = static_cast<int>(::sysconf(_SC_NPROCESSORS_CONF));
    for (int processor = 0; processor < processors && processor < CPU_SETSIZE; ++processor) {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        if (::sched_setaffinity(0, sizeof(one), &one) != 0) {
            continue;  // not allowed for this process, or offline
        }
        if (::unshare(CLONE_NEWNS) != 0 || ownMountsComeAfter(earlier)) {
            return;
        }
    }
}

/// Makes the kernel kill this process when its parent ends: nobody would wait for it. A killed
/// start is then over at once, its lock is free, and the mark says that the container is
/// incomplete.
void endWithParent(pid_t parent) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(1);  // it ended before the kernel was asked
    }
}

/// The child's part until its release. Ends the process when unshare fails.
void unshareAndWait(int flags, const Parent& parent, Pipe& release, Pipe& ready) {
    endWithParent(parent.pid);
    if (::chdir("/") != 0) {
        reportSystemError("chdir(/) failed: ");
    }
    release.writeEnd.reset();
    ready.readEnd.reset();
    const FileDescriptor* start = parent.startMounts;
    if ((start != nullptr && ::setns(start->get(), CLONE_NEWNS) != 0) || ::unshare(flags) != 0) {
        reportSystemError("unshare() failed: ");
        ::_exit(1);
    }
    if ((flags & CLONE_NEWNS) != 0) {
        if (getNamespaceInode(::getpid(), "mnt") == parent.mountInode) {
            report("mount inode hasn't changed!");
            ::_exit(1);
        }
        unshareUntilMountsCanBePinned(parent.mounts);
    }
    ready.writeEnd.reset();
    waitForPeer(release.readEnd);
}

bool hasOwnNamespace(pid_t child, const NamespaceKind& kind) {
    const std::uint64_t inode = inodeOf(namespaceLink(child, kind.name));
    // 0: the child is dead, and has printed why
    return inode != 0 && inode != getNamespaceInode(::getpid(), kind.name);
}

}  // namespace

pid_t forkUnshare(int flags, int& syncFd, const FileDescriptor* startMounts) {
    syncFd = -1;
    const Parent parent{::getpid(), getNamespaceInode(::getpid(), "mnt"),
                        FileDescriptor(::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC)),
                        startMounts};
    Pipe release = openPipe();
    Pipe ready = openPipe();
    flushOutput();  // else both processes would print what is buffered
    const pid_t child = ::fork();
    if (child == -1) {
        throw systemError("fork() failed: ");
    }
    if (child == 0) {
        try {
            unshareAndWait(flags, parent, release, ready);
        } catch (const std::runtime_error& failure) {
            // _exit: the callers' clean-up belongs to the parent and must not run here
            report(failure.what());
            ::_exit(1);
        }
        return 0;
    }
    ready.writeEnd.reset();
    waitForPeer(ready.readEnd);
    syncFd = release.writeEnd.release();
    return child;
}

void requireOwnNamespaces(pid_t child, int flags) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if ((flags & kind.flag) != 0 && !hasOwnNamespace(child, kind)) {
            throw std::runtime_error(std::string("no new ") + kind.name + " namespace was created");
        }
    }
}

int releaseAndWait(pid_t child, FileDescriptor& sync) {
    sync.reset();
    int status = 0;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return status;
}
