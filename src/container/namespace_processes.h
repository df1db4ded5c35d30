// The processes that live in a container's namespaces: finds them, and asks them to end.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "container/namespaces.h"

/// A namespace file and who lives in its namespace.
struct NamespaceEntry {
    std::string path;
    std::string kind;         ///< as in /proc/PID/ns/
    std::uint64_t inode = 0;  ///< the namespace's; 0 when there is none to look for
    std::vector<pid_t> pids;
    FileIdentity file;  ///< what the path named when the entry was made
};

inline constexpr const char* kProcesses = "/proc";
inline constexpr pid_t kFirstProcess = 1;

/// Appends to every entry's `pids` the processes in its namespace, in the order of the directory.
/// One whose first thread has ended is known by its other threads. The first process of the host
/// and kivctl itself are never among them. Throws std::runtime_error when the directory cannot be
/// read.
void findNamespaceProcesses(std::list<NamespaceEntry>& entries,
                            const std::string& processes = kProcesses);

/// Sends SIGTERM to the process, should it still live in one of the entries' namespaces: a process
/// that has got the number of one that ended is not hit.
void terminateProcess(pid_t pid, const std::list<NamespaceEntry>& entries);
