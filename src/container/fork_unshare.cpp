#include "container/fork_unshare.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>

#include "container/mount_namespace_order.h"
#include "container/namespaces.h"
#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/output.h"

namespace {

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

Pipe openPipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        const int error = errno;
        throw systemError("pipe() failed: ", error);
    }
    return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// Until there is a byte or the other side has closed its end.
void waitForPeer(const FileDescriptor& readEnd) {
    char byte = 0;
    while (::read(readEnd.get(), &byte, 1) == -1) {
    }
}

/// The child's half, up to its release. Ends the process when there are no new namespaces.
void unshareAndWait(int flags, std::uint64_t before, const FileDescriptor& parentsMounts,
                    Pipe& release, Pipe& ready) {
    if (::chdir("/") != 0) {
        const int error = errno;
        report("chdir(/) failed: " + errorText(error));
    }
    release.writeEnd.reset();
    ready.readEnd.reset();
    if (::unshare(flags) != 0) {
        const int error = errno;
        report("unshare() failed: " + errorText(error));
        ::_exit(1);
    }
    if ((flags & CLONE_NEWNS) != 0 && getNamespaceInode(::getpid(), "mnt") == before) {
        report("mount inode hasn't changed!");
        ::_exit(1);
    }
    if ((flags & CLONE_NEWNS) != 0) {
        makeMountNamespaceLater(parentsMounts.get());
    }
    ready.writeEnd.reset();
    waitForPeer(release.readEnd);
}

}  // namespace

pid_t forkUnshare(int flags, int& syncFd) {
    syncFd = -1;
    const std::uint64_t before = getNamespaceInode(::getpid(), "mnt");
    Pipe release = openPipe();
    Pipe ready = openPipe();
    const FileDescriptor ownMounts(::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC));
    flushOutput();  // what is buffered must not come out of both processes
    const pid_t child = ::fork();
    if (child == -1) {
        const int error = errno;
        throw systemError("fork() failed: ", error);
    }
    if (child == 0) {
        unshareAndWait(flags, before, ownMounts, release, ready);
        return 0;
    }
    ready.writeEnd.reset();
    waitForPeer(ready.readEnd);
    syncFd = release.writeEnd.release();
    return child;
}
