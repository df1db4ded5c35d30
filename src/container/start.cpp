#include "container/start.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

#include "container/each_account.h"
#include "container/fork_unshare.h"
#include "container/host_preparation.h"
#include "container/namespaces.h"
#include "container/network.h"
#include "container/run_lock.h"
#include "container/set_up_child.h"
#include "fs/mount_table.h"
#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/interrupted_run.h"
#include "util/output.h"
#include "util/runtime_directory.h"
#include "util/scope_guard.h"

namespace {

/// Refuses a symbolic link: the namespace would be mounted on its target. Only root can have
/// created it; exec refuses it too.
void refuseLink(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        const int error = errno;
        if (error != ENOENT) {
            throw systemError(path + ": ", error);
        }
    } else if (S_ISLNK(status.st_mode)) {
        throw systemError(path + ": ", ELOOP);
    }
}

/// Unpins the namespaces that an interrupted run pinned and never completed. They do not count as
/// running: the view may show the whole host, and the network may lack addresses.
void unpinInterrupted(const ContainerHandle& handle, const InterruptedRun& run) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        const std::string path = namespaceFile(handle.userName, kind.name);
        if ((run.kinds & kind.flag) == 0 || !mayBeNamespace(path)) {
            continue;
        }
        report("unpinning " + path + ", an earlier start or stop was interrupted");
        if (::umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0) {
            throw systemError("Cannot unmount ", path, ": ");
        }
    }
}

/// Throws unless an interrupted run's rules are gone. stop removes each rule once, so a rule added
/// a second time would outlive the next stop.
void requireNoLeftNetwork(const ContainerLink& link) {
    // without iptables none is added either
    if (removeLeftNetwork(link.hostInterface, link.hostAddress) == LeftRules::Unknown) {
        throw std::runtime_error(leftRulesText(link.hostInterface));
    }
}

/// False when none of the account's namespace files exists, so that none can have a mount.
bool hasNamespaceFile(const ContainerHandle& handle) {
    return std::any_of(std::begin(kNamespaceKinds), std::end(kNamespaceKinds),
                       [&handle](const NamespaceKind& kind) {
                           struct stat status {};
                           const std::string path = namespaceFile(handle.userName, kind.name);
                           return ::lstat(path.c_str(), &status) == 0 || errno != ENOENT;
                       });
}

/// Creates the file of each missing namespace and returns the unshare(2) flags of these namespaces.
int missingNamespaces(const ContainerHandle& handle) {
    static CurrentMounts mounts(runtimeDirectory);
    const MountTable nothing;
    const MountTable& table = hasNamespaceFile(handle) ? mounts.table() : nothing;
    int flags = 0;
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if (!checkNamespaceMount(handle.userName, table, kind.name)) {
            flags |= kind.flag;
            const std::string path = namespaceFile(handle.userName, kind.name);
            ensureFileExists(path);
            refuseLink(path);
        }
    }
    return flags;
}

/// Sets the mark before the namespaces exist, because exec must not enter incomplete ones.
void setMark(const RunMark& mark, const InterruptedRun& run) {
    if (!mark.write(run)) {
        throw systemError(runtimeDirectory, ": cannot mark a container that is being started: ");
    }
}

void pinNamespaces(const ContainerHandle& handle, pid_t child, int flags) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if ((flags & kind.flag) == 0) {
            continue;
        }
        const std::string source = namespaceLink(child, kind.name);
        const std::string target = namespaceFile(handle.userName, kind.name);
        progress("bind-mounting " + target);
        if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            throw systemError(source, ": mount(", target, ") failed: ");
        }
    }
}

/// Creates the plan's namespaces in a child, connects and pins them, and lets the child build the
/// view. Signals are not blocked: when this process is ended, by Ctrl-C for example, the kernel
/// also ends the child and the running host tool, and the mark tells the next run what is
/// incomplete.
void createNamespaces(const ContainerHandle& handle, const SetUpPlan& plan, const RunMark& mark) {
    setMark(mark, {plan.flags});
    ScopeGuard nothingWasMade([&mark] { mark.clear(); });
    int syncFd = -1;
    const pid_t child = forkUnshare(plan.flags, syncFd);
    if (child == 0) {
        runSetUpChild(plan, mark);
    }
    FileDescriptor sync(syncFd);
    // every exit from this scope releases the child and waits for it; only then may the mark be
    // cleared
    const ScopeGuard neverLeaveTheChild([child, &sync] { releaseAndWait(child, sync); });
    requireOwnNamespaces(child, plan.flags);
    nothingWasMade.dismiss();
    if ((plan.flags & CLONE_NEWNET) != 0) {
        if (!setUpHostSide(plan.link, child)) {
            setMark(RunMark::ofLeftPair(handle.userName), {});
        }
    }
    pinNamespaces(handle, child, plan.flags);
    setMark(mark, {plan.flags, /*pinned=*/true});
}

}  // namespace

void startCommand(const char* user) {
    ::umask(kSetUpUmask);
    const std::string failures = forEachAccount(user, [](const AccountEntry& account) {
        print("starting container: " + account.name + ", network:" + account.net + "\n");
        flushOutput();
        ContainerHandle handle(account.name);
        startContainer(handle, IpNetwork(account.net));
    });
    if (!failures.empty()) {
        throw std::runtime_error(failures);
    }
}

void startContainer(ContainerHandle& handle, const IpNetwork& network) {
    SetUpPlan plan{handle.userName, planLink(handle, network), {}};
    prepareHost(handle);
    const FileDescriptor lock = lockAccount(handle);
    const RunMark mark(handle.userName);
    const auto interrupted = mark.read();
    if (interrupted) {
        unpinInterrupted(handle, *interrupted);
    }
    plan.flags = missingNamespaces(handle);
    if (plan.flags == 0) {
        mark.clear();  // left by a stop that was killed before it removed anything
        return;        // running already
    }
    // not earlier: this look-up reads the whole password file
    plan.account = Util::getpwuid(handle.uid);
    if ((plan.flags & CLONE_NEWNET) != 0) {
        const RunMark leftPair = RunMark::ofLeftPair(handle.userName);
        if (interrupted || leftPair.read()) {
            requireNoLeftNetwork(plan.link);
            leftPair.clear();
        }
        checkInterfaceNames(plan.link);
    }
    createNamespaces(handle, plan, mark);
    progress("OK.");
}
