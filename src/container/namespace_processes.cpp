#include "container/namespace_processes.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/file_descriptor.h"

namespace {

bool isNumbered(const std::string& name) {
    return name.front() >= '0' && name.front() <= '9';
}

/// A thread that has ended has no namespaces any more, though its number stays as long as the
/// process has other threads: they are what keeps the namespace in use.
bool hasThreadIn(const NamespaceEntry& entry, const std::string& process) {
    const std::string threads = process + "/task/";
    const DirectoryStream directory(::opendir(threads.c_str()));
    if (directory == nullptr) {
        const int error = errno;
        if (error != ENOENT && error != ESRCH) {
            throw systemError("Cannot open " + threads + ": ", error);
        }
        return false;  // ended altogether
    }
    while (const dirent* found = ::readdir(directory.get())) {
        const std::string thread = found->d_name;
        if (isNumbered(thread) && inodeOf(threads + thread + "/ns/" + entry.kind) == entry.inode) {
            return true;
        }
    }
    return false;
}

/// `process` is the process's directory.
bool livesIn(const NamespaceEntry& entry, const std::string& process) {
    if (entry.inode == 0) {
        return false;
    }
    const std::uint64_t inode = inodeOf(process + "/ns/" + entry.kind);
    return inode == 0 ? hasThreadIn(entry, process) : inode == entry.inode;
}

}  // namespace

void findNamespaceProcesses(std::list<NamespaceEntry>& entries, const std::string& processes) {
    const DirectoryStream directory(::opendir(processes.c_str()));
    if (directory == nullptr) {
        throw systemError("Cannot open ", processes, ": ");
    }
    const pid_t self = ::getpid();
    while (true) {
        errno = 0;
        const dirent* found = ::readdir(directory.get());
        if (found == nullptr) {
            break;
        }
        const std::string name = found->d_name;
        if (!isNumbered(name)) {
            continue;
        }
        const auto pid = static_cast<pid_t>(std::strtol(name.c_str(), nullptr, 10));
        if (pid == kFirstProcess || pid == self) {
            continue;
        }
        for (NamespaceEntry& entry : entries) {
            if (livesIn(entry, processes + "/" + name)) {
                entry.pids.push_back(pid);
            }
        }
    }
    const int error = errno;
    if (error != 0) {
        // half a list would have living processes' namespaces taken from under them
        throw systemError("Cannot read " + processes + ": ", error);
    }
}

void terminateProcess(pid_t pid, const std::list<NamespaceEntry>& entries) {
    const FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (!process.valid() && errno == ESRCH) {
        return;
    }
    // From here on the descriptor means one process, whatever becomes of its number: looking at the
    // number's namespaces now tells whether it is the one that was found.
    const std::string directory = kProcesses + ("/" + std::to_string(pid));
    const bool stillThere = std::any_of(
        entries.begin(), entries.end(),
        [&directory](const NamespaceEntry& entry) { return livesIn(entry, directory); });
    if (!stillThere) {
        return;
    }
    const bool told = process.valid() &&
                      (::syscall(SYS_pidfd_send_signal, process.get(), SIGTERM, nullptr, 0) == 0 ||
                       errno == ESRCH);
    if (!told) {
        ::kill(pid, SIGTERM);  // before Linux 5.3, or where a filter of the host keeps pidfds back
    }
}
