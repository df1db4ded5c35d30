// The namespaces that make a container, and how they are told apart.
#pragma once

#include <sched.h>
#include <sys/types.h>

#include <cstdint>
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
