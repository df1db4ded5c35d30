#include "fs/path_resolution.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <list>
#include <optional>
#include <utility>
#include <vector>

#include "fs/layer_paths.h"

namespace {

constexpr int kPathOnly = O_PATH | O_CLOEXEC;
constexpr int kMostLinks = 40;   // the kernel's own limit, path_resolution(7)
constexpr int kMostTries = 100;  // of a call that lost a race

FileDescriptor fail(int error) {
    errno = error;
    return FileDescriptor();
}

/// Opens one component without following a link. Tries O_DIRECTORY first: only with it does O_PATH
/// make an automounter mount the directory, open(2).
FileDescriptor openComponent(const FileDescriptor& directory, const std::string& name) {
    FileDescriptor opened(
        ::openat(directory.get(), name.c_str(), kPathOnly | O_NOFOLLOW | O_DIRECTORY));
    if (!opened.valid() && errno == ENOTDIR) {
        opened.reset(::openat(directory.get(), name.c_str(), kPathOnly | O_NOFOLLOW));
    }
    return opened;
}

/// The owner when `opened` is a symbolic link.
std::optional<uid_t> linkOwner(const FileDescriptor& opened) {
    struct stat status {};
    if (::fstat(opened.get(), &status) != 0 || !S_ISLNK(status.st_mode)) {
        return std::nullopt;
    }
    return status.st_uid;
}

std::string readLink(const FileDescriptor& link) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = ::readlinkat(link.get(), "", target.data(), target.size());
    return length <= 0 ? "" : std::string(target.data(), static_cast<std::size_t>(length));
}

/// A path that ends in "/" must name a directory, path_resolution(7).
FileDescriptor directoryIfSlashed(FileDescriptor opened, const std::string& path) {
    if (opened.valid() && path.ends_with('/')) {
        opened.reset(::openat(opened.get(), ".", kPathOnly | O_DIRECTORY));
    }
    return opened;
}

FileDescriptor openComponentUnlessLink(const FileDescriptor& directory, const std::string& name) {
    FileDescriptor opened = openComponent(directory, name);
    return opened.valid() && linkOwner(opened) ? fail(ELOOP) : std::move(opened);
}

/// Does what openat2(2) does with RESOLVE_NO_SYMLINKS, where the kernel lacks the call or a filter
/// denies it.
FileDescriptor walkWithoutLinks(FileDescriptor current, const std::string& path) {
    for (const std::string& name : componentsOf(path)) {
        current = openComponentUnlessLink(current, name);
        if (!current.valid()) {
            return current;
        }
    }
    return directoryIfSlashed(std::move(current), path);
}

/// The same with RESOLVE_BENEATH. A ".." returns to the directory that the walk came through, so
/// that moving directories meanwhile cannot lead the walk out of `root`.
FileDescriptor walkBeneath(const FileDescriptor& root, const std::string& path) {
    const auto asDirectory = [](const FileDescriptor& opened) {
        return FileDescriptor(::openat(opened.get(), ".", kPathOnly | O_DIRECTORY));
    };
    std::vector<FileDescriptor> passed;
    FileDescriptor current = asDirectory(root);
    for (const std::string& name : componentsOf(path)) {
        FileDescriptor next =
            name == ".." ? asDirectory(current) : openComponentUnlessLink(current, name);
        if (!next.valid()) {
            return next;
        }
        if (name != "..") {
            if (name != ".") {
                passed.push_back(std::move(current));
            }
            current = std::move(next);
        } else if (passed.empty()) {
            return fail(EXDEV);
        } else {
            current = std::move(passed.back());
            passed.pop_back();
        }
    }
    return directoryIfSlashed(std::move(current), path);
}

/// Retries on EAGAIN. With RESOLVE_BENEATH a ".." fails so when anything on the machine is renamed
/// or mounted at the same moment, openat2(2): the kernel then cannot know whether the path left the
/// directory. An account can rename in an endless loop, so the number of tries is limited.
FileDescriptor callOpenat2(int directory, const std::string& path, std::uint64_t resolve) {
    open_how how{};
    how.flags = kPathOnly;
    how.resolve = resolve;
    FileDescriptor opened;
    int tries = 0;
    do {
        opened.reset(
            static_cast<int>(::syscall(SYS_openat2, directory, path.c_str(), &how, sizeof how)));
    } while (!opened.valid() && errno == EAGAIN && ++tries < kMostTries);
    return opened;
}

/// ENOSYS comes from kernels before 5.6; system-call filters of older container engines return
/// EPERM, which openat2 itself never returns for O_PATH.
bool lacksOpenat2(const FileDescriptor& opened) {
    return !opened.valid() && (errno == ENOSYS || errno == EPERM);
}

}  // namespace

FileDescriptor openWithoutLinks(const std::string& path) {
    FileDescriptor opened = callOpenat2(AT_FDCWD, path, RESOLVE_NO_SYMLINKS);
    if (!lacksOpenat2(opened)) {
        return opened;
    }
    if (path.empty()) {
        return fail(ENOENT);
    }
    const char* start = path.front() == '/' ? "/" : ".";
    return walkWithoutLinks(FileDescriptor(::open(start, kPathOnly | O_DIRECTORY)), path);
}

FileDescriptor openBeneath(const FileDescriptor& root, const std::string& path) {
    const auto begin = path.find_first_not_of('/');
    const std::string relative = begin == std::string::npos ? "." : path.substr(begin);
    FileDescriptor opened =
        callOpenat2(root.get(), relative, RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS);
    if (!lacksOpenat2(opened)) {
        return opened;
    }
    return walkBeneath(root, relative);
}

FileDescriptor openThroughRootLinks(const std::string& path, LastLink lastLink) {
    if (path.empty()) {
        return fail(ENOENT);
    }
    const auto openRoot = [] { return FileDescriptor(::open("/", kPathOnly | O_DIRECTORY)); };
    // as with lstat(2): a link at the end is followed when a slash follows it
    const bool followLast = lastLink == LastLink::Follow || path.ends_with('/');
    FileDescriptor current = openRoot();
    std::list<std::string> pending = componentsOf(path);
    int links = 0;
    while (current.valid() && !pending.empty()) {
        const std::string name = pending.front();
        pending.pop_front();
        FileDescriptor next = openComponent(current, name);
        const auto owner = next.valid() ? linkOwner(next) : std::nullopt;
        if (!owner || (pending.empty() && !followLast)) {
            current = std::move(next);
            continue;
        }
        const std::string target = readLink(next);
        if (*owner != 0 || target.empty() || ++links > kMostLinks) {
            return fail(ELOOP);
        }
        if (target.front() == '/') {
            current = openRoot();
        }
        pending.splice(pending.begin(), componentsOf(target));
    }
    return directoryIfSlashed(std::move(current), path);
}

int bindMount(const FileDescriptor& source, const FileDescriptor& target) {
    const std::string from = "/proc/self/fd/" + std::to_string(source.get());
    const std::string to = "/proc/self/fd/" + std::to_string(target.get());
    return ::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr);
}
