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

/// Where a process lives: the numbers of its namespaces. One that runs in an account's network and
/// in another mount namespace than the pinned one has an earlier view, from before a refresh.
struct ProcessPlace {
    pid_t pid = 0;
    std::uint64_t network = 0;
    std::uint64_t mounts = 0;
};

/// Of every process, this one and those that have just ended left out. Throws as
/// findNamespaceProcesses does.
std::vector<ProcessPlace> listProcessPlaces(const std::string& processes = kProcesses);

/// Sends SIGTERM to the process, should it still live in one of the entries' namespaces: a process
/// that has got the number of one that ended is not hit.
void terminateProcess(pid_t pid, const std::list<NamespaceEntry>& entries);
