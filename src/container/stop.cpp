#include "container/stop.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <list>
#include <optional>
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
#include "container/run_lock.h"
#include "util/errors.h"
#include "util/external_command.h"
#include "util/file_descriptor.h"
#include "util/interrupted_run.h"
#include "util/output.h"
#include "util/runtime_directory.h"
#include "util/scope_guard.h"

namespace {

// deliberate: also "cgroup", which start does not create, and in another order than start's
constexpr const char* kStoppedKinds[] = {"ipc", "mnt", "net", "cgroup"};
constexpr const char* kNetworkKind = "net";
constexpr const char* kViewKind = "mnt";
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

/// The inode to search for, or 0. A plain file's inode number may equal that of some namespace, and
/// all of the host's processes are in the host's own namespaces: neither is searched for.
std::uint64_t inodeToFind(const std::string& path, const char* kind, std::uint64_t inode) {
    return mayBeNamespace(path) && !isHosts(kind, inode) ? inode : 0;
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

/// Each pid is printed before it is signalled, so that the record is true even if kivctl is ended
/// half-way.
void terminateProcesses(const std::string& user, const std::vector<pid_t>& pids,
                        const std::list<NamespaceEntry>& entries) {
    printError(user + ": terminating processes: ");
    const ScopeGuard lineEnd([] { printError("\n"); });  // also before an error's own line
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

/// Deliberate: waits for the full time even when all have ended earlier. A zombie, which its parent
/// has not waited for, is still listed and counts.
bool haveEnded(std::vector<pid_t> pids) {
    for (int pass = 0; pass < kPasses; ++pass) {
        ::usleep(kPassTime);
        std::erase_if(pids, [](pid_t pid) { return !isListed(pid); });
    }
    return pids.empty();
}

struct HostAddress {
    std::optional<std::string> text;
    std::string failure;  ///< why there is no address
};

/// A registry line that was changed while the container ran may name a network without the address.
/// What can be stopped without the address is stopped.
HostAddress hostAddressOf(const IpNetwork& network) {
    try {
        return {std::string(network.getAddress(1)), ""};
    } catch (const std::runtime_error& error) {
        return {std::nullopt, error.what()};
    }
}

/// Whether the file was replaced or removed while the lock was free, for example by another stop,
/// and a start after it. A file that cannot be examined counts as unchanged, so that the failure is
/// reported later.
bool hasChanged(const NamespaceEntry& entry) {
    const auto file = identityOf(entry.path);
    return file ? *file != entry.file : errno == ENOENT;
}

/// A refresh replaces only the view: as long as the network namespace is the one that was found, it
/// is still the container to be stopped.
bool isSameContainer(const std::list<NamespaceEntry>& entries) {
    return std::any_of(entries.begin(), entries.end(), [](const NamespaceEntry& entry) {
        return entry.kind == kNetworkKind && !hasChanged(entry);
    });
}

/// False when a rule may still be there. Without an address the database's rule is not known.
bool removeRules(const std::string& interface, const std::optional<std::string>& address) {
    std::vector<PacketRule> rules = {rejectRule(interface)};
    if (address) {
        rules.push_back(databaseRule(interface, *address));
    }
    bool gone = address.has_value();
    for (const PacketRule& rule : rules) {
        ExternalCommand command(configuration().iptablesCommand, rule.arguments("-D"));
        gone = meansRuleIsGone(command.execute()) && gone;
    }
    return gone;
}

/// True when nothing is mounted on the file any more. When the mount stays, its file and its rules
/// stay too.
bool removeNamespaceFile(const std::string& path) {
    // EINVAL: not a mount point, which a start that failed half-way leaves
    if (::umount(path.c_str()) != 0 && errno != EINVAL) {
        reportSystemError("Cannot unmount ", path, ": ");
        return false;
    }
    if (::unlink(path.c_str()) != 0) {
        reportSystemError("Cannot delete ", path, ": ");
    }
    // deliberate: printed even when the file could not be deleted
    progress("Unmounted and deleted " + path);
    return true;
}

/// The unshare(2) flags of the kinds that are still pinned after the stop.
int stillPinned(const std::string& userName) {
    int kinds = 0;
    for (const NamespaceKind& kind : kNamespaceKinds) {
        kinds |= mayBeNamespace(namespaceFile(userName, kind.name)) ? kind.flag : 0;
    }
    return kinds;
}

/// Removes the namespace files, and the packet rules together with the network's file. False when
/// rules may still be there.
bool removeFiles(const std::string& interface, const std::optional<std::string>& address,
                 const std::list<NamespaceEntry>& entries, const RunMark& mark,
                 bool wasInterrupted) {
    bool rulesAreGone = true;
    const bool sameContainer = isSameContainer(entries);
    for (const NamespaceEntry& entry : entries) {
        const bool isRefreshed =
            sameContainer && entry.kind == kViewKind && identityOf(entry.path).has_value();
        if (hasChanged(entry) && !isRefreshed) {
            continue;
        }
        const bool takesRules = entry.kind == kNetworkKind;
        if (takesRules && !wasInterrupted) {
            // If this process is killed after it removed the file and before it removed the rules,
            // only the mark shows that rules are left. The stop continues when the mark cannot be
            // written.
            [[maybe_unused]] const bool marked = mark.write({CLONE_NEWNET});
        }
        if (removeNamespaceFile(entry.path) && takesRules) {
            rulesAreGone = removeRules(interface, address);
        }
    }
    return rulesAreGone;
}

/// The interface pair of a start that could not move the pair's other end.
void removeMarkedPair(const std::string& userName, const std::string& interface) {
    const RunMark leftPair = RunMark::ofLeftPair(userName);
    if (leftPair.read()) {
        removeLeftPair(interface);
        leftPair.clear();
    }
}

/// Removes what an interrupted run left of a network that nothing holds any more. False when rules
/// may still be there.
bool removeInterruptedNetwork(const std::string& interface,
                              const std::optional<std::string>& address) {
    const bool gone = removeLeftNetwork(interface, address) == LeftRules::None;
    if (!gone && address) {
        report(leftRulesText(interface));
    }
    return gone;
}

/// Replaces the mark. If that fails, the earlier mark stays, which covers more.
void leaveMark(const RunMark& mark, const std::optional<InterruptedRun>& left) {
    if (!left) {
        mark.clear();
    } else if (!mark.write(*left)) {
        reportSystemError(runtimeDirectory, ": cannot mark what is left: ");
    }
}

/// Unpins the container. False when packet rules may still be there; the mark then makes the next
/// start or stop search for them.
bool unpin(ContainerHandle& handle, const std::optional<std::string>& address,
           const std::list<NamespaceEntry>& entries) {
    const RunMark mark(handle.userName);
    const std::optional<InterruptedRun> found = mark.read();
    const std::string interface = hostInterfaceName(handle);
    const bool wasInterrupted = found.has_value();
    bool rulesAreGone = removeFiles(interface, address, entries, mark, wasInterrupted);
    const int pinned = stillPinned(handle.userName);
    if ((pinned & CLONE_NEWNET) == 0) {
        removeMarkedPair(handle.userName, interface);
        if (wasInterrupted) {
            // searches for the rules once more, so only its answer counts
            rulesAreGone = removeInterruptedNetwork(interface, address);
        }
    }
    leaveMark(mark, afterStop(found, pinned, !rulesAreGone));
    return rulesAreGone;
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
    FileDescriptor lock = lockAccount(handle);
    std::list<NamespaceEntry> entries = namespaceEntries(handle);
    findNamespaceProcesses(entries);
    const std::vector<pid_t> pids = distinctProcesses(entries);
    if (!pids.empty()) {
        terminateProcesses(handle.userName, pids, entries);
        lock.reset();  // a start of the account must not wait for the processes to end
        if (!haveEnded(pids)) {
            report("still processes left, aborting.");
            return;
        }
        lock = lockAccount(handle);
    }
    const HostAddress address = hostAddressOf(network);
    // an invalid lock means that there was no runtime directory; if one exists now, its content
    // belongs to a later start
    const bool complete = !lock.valid() || unpin(handle, address.text, entries);
    if (!address.text) {
        throw std::runtime_error(
            complete ? address.failure
                     : hostInterfaceName(handle) +
                           ": cannot remove the rule for the database: " + address.failure);
    }
}
