// The files that hold a container's namespaces, and how they are told apart.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

/// "/proc/PID/ns/KIND".
std::string namespaceLink(pid_t pid, const std::string& kind);

/// The inode number of the file at `path`, links followed; 0, with errno set, when it cannot be
/// examined. A namespace's inode number identifies it while it exists, see namespaces(7).
std::uint64_t inodeOf(const std::string& path);

/// The same for a namespace link below /proc. Reads the number from the link's text where it can,
/// which takes half the time.
std::uint64_t linkedInode(const std::string& link);

/// The inode number of a process's namespace. Throws std::runtime_error with the link and the
/// reason when it cannot be examined.
std::uint64_t getNamespaceInode(pid_t pid, const std::string& kind);

/// Creates an empty file of mode 0600 unless something exists at the path. Throws
/// std::runtime_error.
void ensureFileExists(const std::string& path);

/// Identifies the file at a path, so that a later file under the same name is recognised as
/// different: the kernel soon gives the inode number of an ended namespace to a new one. Before
/// Linux 6.8 the mount's number is reused too, see STATX_MNT_ID_UNIQUE in statx(2).
struct FileIdentity {
    std::uint32_t deviceMajor = 0;
    std::uint32_t deviceMinor = 0;
    std::uint64_t inode = 0;
    std::uint64_t mount = 0;

    bool operator==(const FileIdentity&) const = default;
};

/// Nothing, with errno set, when the path cannot be examined.
std::optional<FileIdentity> identityOf(const std::string& path);

/// False when the path does not exist or is certainly not a namespace. True also when it cannot be
/// examined: the processes in it must not be overlooked.
bool mayBeNamespace(const std::string& path);
