#include "libkiv/container_namespaces.h"

#include <fcntl.h>
#include <linux/nsfs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <stdexcept>

#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/interrupted_run.h"
#include "util/runtime_directory.h"

namespace {

void checkUserName(const std::string& user) {
    if (user.empty() || user.find_first_of("/@") != std::string::npos) {
        throw std::runtime_error("'" + user + "' is no user name");
    }
}

std::runtime_error notRunning(const std::string& path, const std::string& user) {
    return std::runtime_error(path + ": container is not running, start it with: kivctl start " +
                              user);
}

/// A start that was killed may have left a view of the whole host, and its mark.
void requireFinished(const std::string& user) {
    if (RunMark(user).read()) {
        throw std::runtime_error(runtimeDirectory + ": starting the container of " + user +
                                 " was interrupted, start it with: kivctl start " + user);
    }
}

FileDescriptor openNamespace(const std::string& path, const NamespaceKind& kind,
                             const std::string& user) {
    // O_NONBLOCK: the open must not block if the path is a FIFO
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    int error = errno;
    if (!file.valid()) {
        throw error == ENOENT ? notRunning(path, user) : systemError(path + ": ", error);
    }
    const int type = ::ioctl(file.get(), NS_GET_NSTYPE);  // ioctl_ns(2)
    error = errno;
    if (type == -1) {
        // ENOTTY: a plain file. The namespace was never mounted on it, or has been unmounted since.
        throw error == ENOTTY ? notRunning(path, user) : systemError(path + ": ", error);
    }
    if (type != kind.flag) {
        throw std::runtime_error(path + ": is a namespace of another kind");
    }
    return file;
}

}  // namespace

void enterNamespaces(const std::string& user) {
    checkUserName(user);
    std::array<FileDescriptor, std::size(kNamespaceKinds)> files;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const NamespaceKind& kind = kNamespaceKinds[i];
        files[i] = openNamespace(namespaceFile(user, kind.name), kind, user);
    }
    requireFinished(user);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const NamespaceKind& kind = kNamespaceKinds[i];
        if (::setns(files[i].get(), kind.flag) != 0) {
            throw systemError(namespaceFile(user, kind.name), ": setns() failed: ");
        }
    }
    if (::chdir("/") != 0) {
        throw systemError("chdir(/) failed: ");
    }
}
