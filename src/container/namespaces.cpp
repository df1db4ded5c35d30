#include "container/namespaces.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "util/errors.h"
#include "util/file_descriptor.h"

std::string namespaceLink(pid_t pid, const std::string& kind) {
    return "/proc/" + std::to_string(pid) + "/ns/" + kind;
}

std::uint64_t getNamespaceInode(pid_t pid, const std::string& kind) {
    const std::string link = namespaceLink(pid, kind);
    struct stat status {};
    if (::stat(link.c_str(), &status) != 0) {
        const int error = errno;
        throw systemError(link + ": stat() failed: ", error);
    }
    return status.st_ino;
}

void ensureFileExists(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        return;
    }
    int error = errno;
    if (error != ENOENT) {
        throw systemError(path + ": ", error);
    }
    const FileDescriptor created(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    error = errno;
    // EEXIST: somebody else was faster, which is as good
    if (!created.valid() && error != EEXIST) {
        throw systemError(path + ": cannot create: ", error);
    }
}
