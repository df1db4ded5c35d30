#include "container/stop.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <list>
#include <stdexcept>
#include <string>
#include <unordered_set>
#include <vector>

#include "config/configuration.h"
#include "container/each_account.h"
#include "container/namespace_processes.h"
#include "container/namespaces.h"
#include "container/network.h"
#include "container/packet_rules.h"
#include "container/runtime_lock.h"
#include "container/unfinished_mark.h"
#include "util/errors.h"
#include "util/external_command.h"
#include "util/file_descriptor.h"
#include "util/output.h"
#include "util/runtime_directory.h"
#include "util/scope_guard.h"

namespace {

// deliberate: "cgroup" too, which start does not make, and in an order of its own
constexpr const char* kStoppedKinds[] = {"ipc", "mnt", "net", "cgroup"};
constexpr const char* kNetworkKind = "net";
constexpr int kPasses = 20;
constexpr useconds_t kPassTime = 100'000;  // microseconds

/// True when the number is that of a namespace in which kivctl or the host's first process lives.
bool isHosts(const char* kind, std::uint64_t inode) {
    for (const pid_t pid : {::getpid(), kFirstProcess}) {
        const auto own = identityOf(namespaceLink(pid, kind));
        const int error = errno;
        if (own && own->inode == inode) {
            return true;
        }
        if (!own && error != ENOENT && pid != kFirstProcess) {
            throw systemError(namespaceLink(pid, kind) + ": ", error);  // else all could be killed
        }
    }
    return false;
}

/// The inode to look for. A plain file's number may be that of any namespace, and the host's own
/// namespaces are the whole host's: neither is looked for.
std::uint64_t inodeToFind(const std::string& path, const char* kind, std::uint64_t inode) {
    return isNamespace(path) && !isHosts(kind, inode) ? inode : 0;
}

std::list<NamespaceEntry> namespaceEntries(const ContainerHandle& handle) {
    std::list<NamespaceEntry> entries;
    for (const char* kind : kStoppedKinds) {
        const std::string path = handle.getNamespacePrefix() + kind;
        if (const auto file = identityOf(path)) {
            entries.push_back({path, kind, inodeToFind(path, kind, file->inode), {}, *file});
        }
    }
    return entries;
}

std::vector<pid_t> distinctProcesses(const std::list<NamespaceEntry>& entries) {
    std::vector<pid_t> distinct;
    std::unordered_set<pid_t> seen;  // a runaway account has tens of thousands
    for (const NamespaceEntry& entry : entries) {
        for (const pid_t pid : entry.pids) {
            if (seen.insert(pid).second) {
                distinct.push_back(pid);
            }
        }
    }
    return distinct;
}

/// Each is told of before it is signalled, so that what ends kivctl half-way leaves a true record.
void terminateProcesses(const std::string& user, const std::vector<pid_t>& pids,
                        const std::list<NamespaceEntry>& entries) {
    printError(user + ": terminating processes: ");
    const ScopeGuard lineEnd([] { printError("\n"); });  // before an error's own line too
    const char* separator = "";
    for (const pid_t pid : pids) {
        printError(separator + std::to_string(pid));
        terminateProcess(pid, entries);
        separator = ", ";
    }
}

bool isListed(pid_t pid) {
    struct stat status {};
    return ::stat((kProcesses + ("/" + std::to_string(pid))).c_str(), &status) == 0;
}

/// Waits for the full time even when nobody is left earlier, deliberately. A process that its
/// parent has not waited for is still listed, and counts.
bool haveEnded(std::vector<pid_t> pids) {
    for (int pass = 0; pass < kPasses; ++pass) {
        ::usleep(kPassTime);
        std::erase_if(pids, [](pid_t pid) { return !isListed(pid); });
    }
    return pids.empty();
}

/// Whether it was changed or taken away while the lock was free; by somebody else's stop, say, and
/// even a start after that. What cannot be examined is still there to be reported on.
bool hasChanged(const NamespaceEntry& entry) {
    const auto file = identityOf(entry.path);
    return file ? *file != entry.file : errno == ENOENT;
}

/// Without a runtime directory there is nothing to lock, and nothing to stop.
FileDescriptor lockForStop() {
    FileDescriptor lock = lockRuntimeDirectory();
    const int error = errno;
    if (!lock.valid() && error != ENOENT) {
        throw systemError(runtimeDirectory + ": cannot lock: ", error);
    }
    return lock;
}

/// False when iptables could not run to its end.
bool removeRules(const std::string& interface, const std::string& address) {
    bool ran = true;
    for (const PacketRule& rule : {rejectRule(interface), databaseRule(interface, address)}) {
        // a rule that is gone already is as good; the runner has told of it
        ExternalCommand command(configuration().iptablesCommand, rule.arguments("-D"));
        ran = command.execute() >= 0 && ran;
    }
    return ran;
}

/// True when the file's turn is over but for what else belongs to it; a mount that stays is left
/// with its file and its rules.
bool removeNamespaceFile(const std::string& path) {
    // EINVAL: not a mount point, which a start that failed half-way leaves
    if (::umount(path.c_str()) != 0 && errno != EINVAL) {
        const int error = errno;
        report("Cannot unmount " + path + ": " + errorText(error));
        return false;
    }
    if (::unlink(path.c_str()) != 0) {
        const int error = errno;
        report("Cannot delete " + path + ": " + errorText(error));
    }
    // deliberate: tells of the step, also when the file could not be deleted
    progress("Unmounted and deleted " + path);
    return true;
}

/// Removes the files and what belongs to them. The mark stays while the rules or a view that was
/// never completed may be there without a file that tells of them.
void unpin(ContainerHandle& handle, const std::string& address,
           const std::list<NamespaceEntry>& entries, const UnfinishedMark& mark) {
    const std::string prefix = handle.getNamespacePrefix();
    const bool interrupted = mark.isSet();
    bool rulesLeft = interrupted;
    for (const NamespaceEntry& entry : entries) {
        if (hasChanged(entry)) {
            continue;
        }
        const bool isNetwork = entry.kind == kNetworkKind;
        if (isNetwork && !interrupted) {
            mark.set("");
        }
        const bool removed = removeNamespaceFile(entry.path);
        if (isNetwork) {
            rulesLeft = removed && !removeRules(hostInterfaceName(handle), address);
        }
    }
    // a stop that was killed between the file and the rules
    const bool fileAlreadyGone =
        std::none_of(entries.begin(), entries.end(),
                     [](const NamespaceEntry& entry) { return entry.kind == kNetworkKind; });
    if (interrupted && fileAlreadyGone && !identityOf(prefix + kNetworkKind)) {
        rulesLeft = !removeRules(hostInterfaceName(handle), address);
    }
    const bool unfinishedView = mark.names("mnt") && isNamespace(prefix + "mnt");
    if (!rulesLeft && !unfinishedView) {
        mark.clear();
    }
}

}  // namespace

void stopCommand(const char* user) {
    const std::string failures = forEachAccount(user, [](const AccountEntry& account) {
        print("stopping container: " + account.name + ", network:" + account.net + "\n");
        flushOutput();
        ContainerHandle handle(account.name);
        stopContainer(handle, IpNetwork(account.net));
    });
    if (!failures.empty()) {
        throw std::runtime_error(failures);
    }
}

void stopContainer(ContainerHandle& handle, const IpNetwork& network) {
    const std::string address = network.getAddress(1);
    FileDescriptor lock = lockForStop();
    std::list<NamespaceEntry> entries = namespaceEntries(handle);
    findNamespaceProcesses(entries);
    const std::vector<pid_t> pids = distinctProcesses(entries);
    if (!pids.empty()) {
        terminateProcesses(handle.userName, pids, entries);
        lock.reset();  // nobody else's start is to wait for this account's processes
        if (!haveEnded(pids)) {
            report("still processes left, aborting.");
            return;
        }
        lock = lockForStop();
    }
    unpin(handle, address, entries, UnfinishedMark(lock, handle.userName));
}
