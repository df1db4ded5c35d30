#include "libkiv/container_namespaces.h"

#include <fcntl.h>
#include <linux/nsfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <stdexcept>

#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/runtime_directory.h"

namespace {

struct Kind {
    const char* name;
    int type;
};

// the mount namespace last: afterwards the files of the others are out of sight
constexpr std::array<Kind, 3> kKinds = {{
    {"net", CLONE_NEWNET},
    {"ipc", CLONE_NEWIPC},
    {"mnt", CLONE_NEWNS},
}};

void checkUserName(const std::string& user) {
    if (user.empty() || user.find_first_of("/@") != std::string::npos) {
        throw std::runtime_error("'" + user + "' is no user name");
    }
}

std::runtime_error notRunning(const std::string& path, const std::string& user) {
    return std::runtime_error(path + ": container is not running, start it with: kivctl start " +
                              user);
}

/// A start that was killed leaves a view of the host pinned, and the mark that it had set.
void requireFinished(const std::string& user) {
    const ssize_t size =
        ::getxattr(runtimeDirectory.c_str(), unfinishedAttribute(user).c_str(), nullptr, 0);
    const int error = errno;
    if (size >= 0) {
        throw std::runtime_error(runtimeDirectory + ": starting the container of " + user +
                                 " was interrupted, start it with: kivctl start " + user);
    }
    if (error != ENODATA && error != ENOTSUP) {
        throw systemError(runtimeDirectory + ": ", error);
    }
}

FileDescriptor openNamespace(const std::string& path, const Kind& kind, const std::string& user) {
    // not blocking: should somebody have put a FIFO there
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    int error = errno;
    if (!file.valid()) {
        throw error == ENOENT ? notRunning(path, user) : systemError(path + ": ", error);
    }
    const int type = ::ioctl(file.get(), NS_GET_NSTYPE);  // ioctl_ns(2)
    error = errno;
    if (type == -1) {
        // a plain file: the namespace was never bound to it, or the host has been restarted
        throw error == ENOTTY ? notRunning(path, user) : systemError(path + ": ", error);
    }
    if (type != kind.type) {
        throw std::runtime_error(path + ": is a namespace of another kind");
    }
    return file;
}

}  // namespace

void enterNamespaces(const std::string& user) {
    checkUserName(user);
    const std::string prefix = runtimeDirectory + "/" + user + "@";
    std::array<FileDescriptor, kKinds.size()> files;
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
        files[i] = openNamespace(prefix + kKinds[i].name, kKinds[i], user);
    }
    requireFinished(user);
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
        if (::setns(files[i].get(), kKinds[i].type) != 0) {
            const int error = errno;
            throw systemError(prefix + kKinds[i].name + ": setns() failed: ", error);
        }
    }
    if (::chdir("/") != 0) {
        const int error = errno;
        throw systemError("chdir(/) failed: ", error);
    }
}
