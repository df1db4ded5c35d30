// The files that hold a container's namespaces, and how they are told apart.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

/// "/proc/PID/ns/KIND".
std::string namespaceLink(pid_t pid, const std::string& kind);

/// The number of the inode that a path leads to; 0, with errno set, when it cannot be examined. A
/// namespace's number identifies it while it lives.
std::uint64_t inodeOf(const std::string& path);

/// The same for a link to a namespace below /proc, from the text of the link where it is one: in
/// half the time.
std::uint64_t linkedInode(const std::string& link);

/// The inode number of a process's namespace. Throws std::runtime_error with the link and the
/// reason when it cannot be examined.
std::uint64_t getNamespaceInode(pid_t pid, const std::string& kind);

/// Creates an empty file, mode 0600, where there is nothing. Throws std::runtime_error.
void ensureFileExists(const std::string& path);

/// Identifies the file at a path, so that a later file under the same name is recognised as
/// different: a namespace's number alone is soon given to the next one. Before Linux 6.8 the
/// mount's number is reused too.
struct FileIdentity {
    std::uint32_t deviceMajor = 0;
    std::uint32_t deviceMinor = 0;
    std::uint64_t inode = 0;
    std::uint64_t mount = 0;

    bool operator==(const FileIdentity&) const = default;
};

/// Nothing, with errno set, when the path cannot be examined.
std::optional<FileIdentity> identityOf(const std::string& path);

/// False for a path that does not exist and for what is certainly no namespace of the kernel. True
/// also for what cannot be examined: whoever lives in it must not be overlooked.
bool mayBeNamespace(const std::string& path);
