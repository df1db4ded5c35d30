#include "container/namespaces.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <system_error>

#include "util/errors.h"
#include "util/file_descriptor.h"

namespace {

// STATX_MNT_ID_UNIQUE of statx(2), which headers before Linux 6.8 lack. An older kernel returns the
// reusable number instead.
constexpr unsigned kUniqueMountId = 0x4000;

}  // namespace

std::string namespaceLink(pid_t pid, const std::string& kind) {
    return "/proc/" + std::to_string(pid) + "/ns/" + kind;
}

std::uint64_t inodeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

std::uint64_t linkedInode(const std::string& link) {
    std::array<char, 64> text{};
    const ssize_t length = ::readlink(link.c_str(), text.data(), text.size());
    const std::string_view target(text.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
    // "net:[4026531840]", namespaces(7)
    const std::size_t bracket = target.find(":[");
    if (bracket != std::string_view::npos && target.ends_with(']')) {
        const char* const end = target.data() + target.size() - 1;
        std::uint64_t inode = 0;
        const auto read = std::from_chars(target.data() + bracket + 2, end, inode);
        if (read.ec == std::errc() && read.ptr == end) {
            return inode;
        }
    }
    return inodeOf(link);
}

std::uint64_t getNamespaceInode(pid_t pid, const std::string& kind) {
    const std::string link = namespaceLink(pid, kind);
    const std::uint64_t inode = inodeOf(link);
    if (inode == 0) {
        throw systemError(link, ": stat() failed: ");
    }
    return inode;
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
    // EEXIST: another process has just created it, which is as good
    if (!created.valid() && error != EEXIST) {
        throw systemError(path + ": cannot create: ", error);
    }
}

std::optional<FileIdentity> identityOf(const std::string& path) {
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), AT_STATX_SYNC_AS_STAT, STATX_INO | kUniqueMountId,
                &status) != 0) {
        return std::nullopt;
    }
    return FileIdentity{status.stx_dev_major, status.stx_dev_minor, status.stx_ino,
                        status.stx_mnt_id};
}

bool mayBeNamespace(const std::string& path) {
    struct statfs status {};
    if (::statfs(path.c_str(), &status) != 0) {
        return errno != ENOENT;
    }
    return status.f_type == NSFS_MAGIC;
}
