#include "container/pivot.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "fs/mount_table.h"
#include "util/errors.h"

namespace {

constexpr int kDirectory = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

void require(int result, const char* failure) {
    if (result < 0) {
        throw systemError(failure);
    }
}

dev_t deviceOf(const FileDescriptor& opened) {
    struct stat status {};
    require(::fstat(opened.get(), &status), "fstat(temp-root) failed: ");
    return status.st_dev;
}

/// True when the mount table shows "/" once, on the device `root`. Read through `self`, the host's
/// /proc/self: the container's own proc may be missing.
bool isOnlyRoot(const FileDescriptor& self, dev_t root) {
    require(::fchdir(self.get()), "fchdir(/proc/self) failed: ");
    MountTable table;
    readMountTable(table, "/", "mountinfo");
    const auto roots = std::count_if(table.begin(), table.end(), [](const MountEntry& entry) {
        return entry.mountPoint() == "/";
    });
    struct stat status {};
    return roots == 1 && ::stat("/", &status) == 0 && status.st_dev == root;
}

void detach(const FileDescriptor& oldRoot) {
    require(::fchdir(oldRoot.get()), "fchdir(oldRoot) failed: ");
    require(::umount2(".", MNT_DETACH), "umount2() failed: ");
}

}  // namespace

void pivotInto(const std::string& newRootPath, const FileDescriptor& expectedRoot) {
    const dev_t device = deviceOf(expectedRoot);
    const FileDescriptor self(::open("/proc/self", O_PATH | O_DIRECTORY | O_CLOEXEC));
    require(self.get(), "open(/proc/self) failed: ");
    const FileDescriptor oldRoot(::open("/", kDirectory));
    require(oldRoot.get(), "open(oldRoot) failed: ");
    FileDescriptor newRoot(::open(newRootPath.c_str(), kDirectory));
    require(newRoot.get(), "open(newRoot) failed: ");
    require(::fchdir(newRoot.get()), "fchdir(newRoot) failed: ");
    newRoot.reset();
    // Afterwards the old root is mounted over the new one, and the working directory keeps it
    // reachable, see pivot_root(2). Deliberate: the error text is that of opening the new root.
    require(static_cast<int>(::syscall(SYS_pivot_root, ".", ".")), "open(newRoot) failed: ");
    require(::fchdir(oldRoot.get()), "fchdir(oldRoot) failed: ");
    // so that detaching the old root detaches nothing on the host
    require(::mount(nullptr, ".", nullptr, MS_SLAVE | MS_REC, nullptr),
            "mount(MS_SLAVE|MS_REC) failed: ");
    require(::umount2(".", MNT_DETACH), "umount2() failed: ");
    if (!isOnlyRoot(self, device)) {
        detach(oldRoot);
        if (!isOnlyRoot(self, device)) {
            throw systemError("umount2() failed: ", EBUSY);
        }
    }
    if (::chdir("/") != 0) {
        reportSystemError("chdir(/) failed: ");
    }
}
