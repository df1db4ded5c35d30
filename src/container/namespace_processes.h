// The processes in a container's namespaces: finds them and asks them to end.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "container/namespaces.h"

/// A namespace file and the processes in its namespace.
struct NamespaceEntry {
    std::string path;
    std::string kind;         ///< as in /proc/PID/ns/
    std::uint64_t inode = 0;  ///< the namespace's; 0 when there is none to search for
    std::vector<pid_t> pids;
    FileIdentity file;  ///< the file at the path when the entry was created
};

/// The process directory, proc(5), and the host's init process.
inline constexpr const char* kProcesses = "/proc";
inline constexpr pid_t kFirstProcess = 1;

/// Appends to every entry's `pids` the processes in its namespace, in the order of the directory
/// `processes`. A process whose first thread has ended is found by its other threads. The host's
/// first process and this one are always left out. Throws std::runtime_error when the directory
/// cannot be read.
void findNamespaceProcesses(std::list<NamespaceEntry>& entries,
                            const std::string& processes = kProcesses);

/// The inode numbers of a process's namespaces, see namespaces(7). A process in an account's
/// network namespace whose mount namespace is not the pinned one has an earlier view, from before a
/// refresh.
struct ProcessPlace {
    pid_t pid = 0;
    std::uint64_t network = 0;
    std::uint64_t mounts = 0;
};

/// The places of all processes except this one and those that have just ended. Throws like
/// findNamespaceProcesses.
std::vector<ProcessPlace> listProcessPlaces(const std::string& processes = kProcesses);

/// Sends SIGTERM to the process if it is still in one of the entries' namespaces. An unrelated
/// process that has since got the same number is not signalled.
void terminateProcess(pid_t pid, const std::list<NamespaceEntry>& entries);
