#include "libkiv/cgroup.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <list>
#include <stdexcept>
#include <string_view>

#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/string_util.h"
#include "util/user_slice.h"

namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr int kTries = 10;
constexpr const char* kLeaf = "kiv";
constexpr std::string_view kMostProcesses = "512";  // as in dist/limits.conf

FileDescriptor openHierarchy(const std::string& root) {
    FileDescriptor directory(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    int error = errno;
    if (!directory.valid()) {
        throw systemError(root + ": ", error);
    }
    struct statfs fileSystem {};
    if (::fstatfs(directory.get(), &fileSystem) != 0) {
        error = errno;
        throw systemError(root + ": ", error);
    }
    if (fileSystem.f_type != CGROUP2_SUPER_MAGIC) {
        throw std::runtime_error(root + ": no cgroup v2 file system is mounted here");
    }
    return directory;
}

bool writeTo(const FileDescriptor& directory, const char* file, std::string_view text) {
    const FileDescriptor target(::openat(directory.get(), file, O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
    return target.valid() &&
           ::write(target.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

/// Turns on the accounting of a cgroup's children. A controller may be missing in the kernel or in
/// use by a cgroup v1 hierarchy; it then does not count the account's use, and the entry still
/// succeeds.
void askForCounting(const FileDescriptor& parent) {
    for (const char* controller : {"+pids", "+memory"}) {
        writeTo(parent, "cgroup.subtree_control", controller);
    }
}

/// False, with errno set, when the cgroup cannot be created. Its mode does not depend on the
/// caller's umask, so that the account can always read its figures.
bool makeChild(const FileDescriptor& parent, const std::string& name) {
    const mode_t before = ::umask(0);
    const int result = ::mkdirat(parent.get(), name.c_str(), kDirectoryMode);
    ::umask(before);
    return result == 0;
}

/// Moves this process into the leaf. On failure returns false, with the path of the failed step in
/// `failed` and the reason in errno.
bool joinLeaf(uid_t uid, const std::string& root, std::string& failed) {
    FileDescriptor directory = openHierarchy(root);
    failed = root;
    for (const auto& name :
         StringUtil::split<std::list<std::string>>(userSlice(uid), "/", true, false)) {
        failed += "/" + name;
        directory = openOrMakeCgroup(directory, name);
        if (!directory.valid()) {
            return false;
        }
    }
    failed += std::string("/") + kLeaf;
    directory = openOrMakeLeaf(directory);
    if (!directory.valid()) {
        return false;
    }
    failed += "/cgroup.procs";
    return writeTo(directory, "cgroup.procs", "0");
}

}  // namespace

FileDescriptor openOrMakeCgroup(const FileDescriptor& parent, const std::string& name) {
    constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    FileDescriptor child(::openat(parent.get(), name.c_str(), kFlags));
    if (child.valid() || errno != ENOENT) {
        return child;
    }
    askForCounting(parent);
    // EEXIST: another process has just created it, which is as good
    if (!makeChild(parent, name) && errno != EEXIST) {
        return child;
    }
    return FileDescriptor(::openat(parent.get(), name.c_str(), kFlags));
}

FileDescriptor openOrMakeLeaf(const FileDescriptor& slice, const std::string& serviceManager) {
    const bool isThere = ::faccessat(slice.get(), kLeaf, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
    FileDescriptor leaf = openOrMakeCgroup(slice, kLeaf);
    const int error = errno;
    if (leaf.valid() && !isThere && ::access(serviceManager.c_str(), F_OK) != 0) {
        limitProcesses(leaf);
    }
    errno = error;
    return leaf;
}

void limitProcesses(const FileDescriptor& leaf) {
    writeTo(leaf, "pids.max", kMostProcesses);
}

void enterCgroup(uid_t uid, const std::string& root) {
    std::string failed;
    int error = 0;
    // the host's service manager may remove the empty leaf after it is created and before it is
    // joined
    for (int attempt = 0; attempt < kTries; ++attempt) {
        if (joinLeaf(uid, root, failed)) {
            return;
        }
        error = errno;
        if (error != ENOENT && error != ENODEV) {
            break;
        }
    }
    throw systemError(failed + ": ", error);
}
