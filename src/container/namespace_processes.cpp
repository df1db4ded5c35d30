#include "container/namespace_processes.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>

#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/file_descriptor.h"

namespace {

bool isNumbered(const std::string& name) {
    return name.front() >= '0' && name.front() <= '9';
}

/// Calls `action` with each thread's directory until it returns true, and returns whether it has. A
/// first thread that has ended has no namespaces any more, although its number stays as long as the
/// process has other threads: those still use the namespace.
bool anyThread(const std::string& process, const std::function<bool(const std::string&)>& action) {
    const std::string threads = process + "/task/";
    const DirectoryStream directory(::opendir(threads.c_str()));
    if (directory == nullptr) {
        const int error = errno;
        if (error != ENOENT && error != ESRCH) {
            throw systemError("Cannot open " + threads + ": ", error);
        }
        return false;  // the whole process has ended
    }
    while (const dirent* found = ::readdir(directory.get())) {
        const std::string thread = found->d_name;
        if (isNumbered(thread) && action(threads + thread)) {
            return true;
        }
    }
    return false;
}

/// `process` is the process's directory below /proc.
bool livesIn(const NamespaceEntry& entry, const std::string& process) {
    if (entry.inode == 0) {
        return false;
    }
    const std::uint64_t inode = linkedInode(process + "/ns/" + entry.kind);
    return inode != 0 ? inode == entry.inode
                      : anyThread(process, [&entry](const std::string& thread) {
                            return linkedInode(thread + "/ns/" + entry.kind) == entry.inode;
                        });
}

/// Fills in the namespaces that `directory`, of a process or a thread, shows. False when it has
/// ended.
bool readPlace(ProcessPlace& place, const std::string& directory) {
    place.network = linkedInode(directory + "/ns/net");
    place.mounts = linkedInode(directory + "/ns/mnt");
    return place.network != 0 && place.mounts != 0;
}

/// In the order of the directory; leaves out the host's first process and this one.
void forEachProcess(const std::string& processes,
                    const std::function<void(pid_t, const std::string&)>& action) {
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
        if (pid != kFirstProcess && pid != self) {
            action(pid, processes + "/" + name);
        }
    }
    const int error = errno;
    if (error != 0) {
        // after half a list the namespaces of running processes would be removed
        throw systemError("Cannot read " + processes + ": ", error);
    }
}

}  // namespace

void findNamespaceProcesses(std::list<NamespaceEntry>& entries, const std::string& processes) {
    forEachProcess(processes, [&entries](pid_t pid, const std::string& process) {
        for (NamespaceEntry& entry : entries) {
            if (livesIn(entry, process)) {
                entry.pids.push_back(pid);
            }
        }
    });
}

std::vector<ProcessPlace> listProcessPlaces(const std::string& processes) {
    std::vector<ProcessPlace> places;
    forEachProcess(processes, [&places](pid_t pid, const std::string& process) {
        ProcessPlace place{pid};
        const auto read = [&place](const std::string& directory) {
            return readPlace(place, directory);
        };
        if (read(process) || anyThread(process, read)) {
            places.push_back(place);
        }
    });
    return places;
}

void terminateProcess(pid_t pid, const std::list<NamespaceEntry>& entries) {
    const FileDescriptor process(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (!process.valid() && errno == ESRCH) {
        return;
    }
    // The descriptor refers to one process even if its number is reused. Checking the number's
    // namespaces now shows whether it is the process that was found.
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
        ::kill(pid, SIGTERM);  // before Linux 5.3, or a filter of the host denies pidfds
    }
}
