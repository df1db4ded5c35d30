// The namespaces that make a container, and how they are told apart.
#pragma once

#include <sched.h>
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

struct NamespaceKind {
    const char* name;  ///< as in /proc/PID/ns/ and in the namespace file's name
    int flag;          ///< what unshare(2) takes to create it
};

/// Always handled in this order.
inline constexpr NamespaceKind kNamespaceKinds[] = {
    {"net", CLONE_NEWNET},
    {"ipc", CLONE_NEWIPC},
    {"mnt", CLONE_NEWNS},
};

/// "/proc/PID/ns/KIND".
std::string namespaceLink(pid_t pid, const std::string& kind);

/// The namespace's inode number, which identifies it while it lives. Throws std::runtime_error with
/// the link and the reason when it cannot be examined.
std::uint64_t getNamespaceInode(pid_t pid, const std::string& kind);

/// Creates an empty file, mode 0600, where nothing stands. Throws std::runtime_error.
void ensureFileExists(const std::string& path);

/// Tells what a path names apart from everything that has stood or will stand there: a namespace's
/// number alone is soon given to the next one. Before Linux 6.8 the mount's number is reused too.
struct FileIdentity {
    std::uint32_t deviceMajor = 0;
    std::uint32_t deviceMinor = 0;
    std::uint64_t inode = 0;
    std::uint64_t mount = 0;

    bool operator==(const FileIdentity&) const = default;
};

/// Nothing, with errno set, when the path cannot be examined.
std::optional<FileIdentity> identityOf(const std::string& path);

/// True for a namespace of the kernel, such as what is mounted on a namespace file, and for what
/// is there and cannot be examined: who lives in it must not be overlooked.
bool isNamespace(const std::string& path);
