#include "pam/session.h"

#include <fcntl.h>
#include <kiv.h>
#include <linux/limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <string>

#include "container/enter.h"
#include "container/namespaces.h"
#include "container/run_lock.h"
#include "pam/library_calls.h"
#include "pam/own_capabilities.h"
#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/interrupted_run.h"
#include "util/runtime_directory.h"

namespace {

/// True for a directory, and for a file that cannot be examined: a directory on a network file
/// system that does not answer now may lead out of the container later.
bool mayBeDirectory(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode);
}

/// Makes open directories close-on-exec. An open directory leads out of the container, and su
/// passes its caller's open files on to the account's shell. Other open files are left to the
/// program.
void keepDirectoriesFromCommands() {
    const DirectoryStream list(::opendir("/proc/self/fd"));
    if (!list) {
        throw systemError("cannot list the open files: ");
    }
    for (;;) {
        errno = 0;
        const dirent* const entry = ::readdir(list.get());
        if (entry == nullptr) {
            if (errno != 0) {
                throw systemError("cannot list the open files: ");
            }
            return;
        }
        // 0 for "." and ".."
        const auto descriptor = static_cast<int>(std::strtol(entry->d_name, nullptr, 10));
        if (descriptor > STDERR_FILENO && mayBeDirectory(descriptor)) {
            ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        }
    }
}

/// su(1) without "-" and sudo(8) start a command in their caller's working directory. The path is
/// looked up inside the container, so it cannot lead outside.
void returnTo(const char* directory) {
    if (directory != nullptr && *directory == '/') {
        // if it fails, the process stays at the container's root
        [[maybe_unused]] const int ignored = ::chdir(directory);
    }
}

}  // namespace

bool isRunning(const ContainerHandle& handle) {
    const FileDescriptor lock = shareAccount(handle, kLongestBuild);
    const bool isPinned =
        std::all_of(std::begin(kNamespaceKinds), std::end(kNamespaceKinds), [&](const auto& kind) {
            return mayBeNamespace(namespaceFile(handle.userName, kind.name));
        });
    return isPinned && !RunMark(handle.userName).read();
}

void checkLibrary(ContainerHandle& handle) {
    loadLibrary();
    kiv_set_log_cb(libraryLogCallback);
    kiv_load_config(&handle);
    if (!handle.error.empty()) {
        throw std::runtime_error(handle.error);
    }
}

void enterSession(ContainerHandle& handle) {
    std::array<char, PATH_MAX> directory{};
    const char* const before = ::getcwd(directory.data(), directory.size());
    keepDirectoriesFromCommands();
    joinContainer(handle, OwnCapabilities::Kept);
    limitCapabilities(handle);
    returnTo(before);
}
