#include "container/start.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

#include "container/each_account.h"
#include "container/fork_unshare.h"
#include "container/host_preparation.h"
#include "container/namespaces.h"
#include "container/network.h"
#include "container/root_filesystem.h"
#include "container/unfinished_mark.h"
#include "fs/mount_table.h"
#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/output.h"
#include "util/runtime_directory.h"
#include "util/scope_guard.h"
#include "util/util.h"

namespace {

constexpr mode_t kUmask = 022;
constexpr const char* kPinned = "pinned";  // in the mark, behind the kinds
constexpr int kNetworkFailed = 71;         // EX_OSERR, as for every command that fails

/// The namespace would be bound to what the link leads to. Only root can have put it there; exec
/// refuses it too.
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

/// What was pinned and never completed does not count as running: its view may be one of the whole
/// host, and its network may lack addresses.
void unpinUnfinished(const ContainerHandle& handle, const UnfinishedMark& mark) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        const std::string path = handle.getNamespacePrefix() + kind.name;
        if (!mark.names(kind.name) || !isNamespace(path)) {
            continue;
        }
        report("unpinning " + path + ", an earlier start or stop was interrupted");
        if (::umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0) {
            const int error = errno;
            throw systemError("Cannot unmount " + path + ": ", error);
        }
    }
}

/// Makes sure that each missing namespace has its file, and returns the unshare(2) flags of those.
int missingNamespaces(const ContainerHandle& handle) {
    MountTable table;
    readMountTable(table, runtimeDirectory, kMountInfo);
    int flags = 0;
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if (!checkNamespaceMount(handle.userName, table, kind.name)) {
            flags |= kind.flag;
            const std::string path = handle.getNamespacePrefix() + kind.name;
            ensureFileExists(path);
            refuseLink(path);
        }
    }
    return flags;
}

std::string namesOf(int flags) {
    std::string names;
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if ((flags & kind.flag) != 0) {
            names += std::string(kind.name) + " ";
        }
    }
    return names;
}

/// Holds back what would end kivctl between the fork and the wait, and leave a child that nobody
/// waits for. Returns the mask to go back to.
sigset_t holdSignals() {
    sigset_t held;
    sigset_t before;
    ::sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaddset(&held, signal);
    }
    ::sigprocmask(SIG_BLOCK, &held, &before);
    return before;
}

bool hasOwnNamespace(pid_t child, const NamespaceKind& kind) {
    try {
        return getNamespaceInode(child, kind.name) != getNamespaceInode(::getpid(), kind.name);
    } catch (const std::runtime_error&) {
        return false;  // a dead child has none; it has said why it died
    }
}

/// A child whose unshare failed is in the host's namespaces: nothing may be wired to or pinned from
/// it.
void requireOwnNamespaces(pid_t child, int flags) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if ((flags & kind.flag) != 0 && !hasOwnNamespace(child, kind)) {
            throw std::runtime_error(std::string("no new ") + kind.name + " namespace was created");
        }
    }
}

void pinNamespaces(const ContainerHandle& handle, pid_t child, int flags) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        if ((flags & kind.flag) == 0) {
            continue;
        }
        const std::string source = namespaceLink(child, kind.name);
        const std::string target = handle.getNamespacePrefix() + kind.name;
        progress("bind-mounting " + target);
        if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            const int error = errno;
            throw systemError(source + ": mount(" + target + ") failed: ", error);
        }
    }
}

/// The set-up child, after its release. Ends the process, or throws.
[[noreturn]] void setUpInside(const ContainerHandle& handle, const ContainerLink& link, int flags,
                              const std::optional<PasswordEntry>& account,
                              const UnfinishedMark& mark) {
    ::umask(kUmask);
    int status = EXIT_SUCCESS;
    if ((flags & CLONE_NEWNET) != 0) {
        const auto group = account ? std::optional(account->gid) : std::nullopt;
        if (!setUpContainerSide(link, group)) {
            status = kNetworkFailed;
        }
    }
    if ((flags & CLONE_NEWNS) != 0) {
        buildRootFilesystem(handle.userName, account, mark);
    } else {
        mark.clear();
    }
    std::exit(status);
}

}  // namespace

void startCommand(const char* user) {
    ::umask(kUmask);  // whatever the caller's: modes of what is created here must not depend on it
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
    const ContainerLink link = planLink(handle, network);
    const auto account = Util::getpwuid(handle.uid);
    const FileDescriptor lock = prepareHost(handle);
    const UnfinishedMark mark(lock, handle.userName);
    const bool interrupted = mark.isSet();
    unpinUnfinished(handle, mark);
    const int flags = missingNamespaces(handle);
    if (flags == 0) {
        mark.clear();  // of a stop that was killed before it had taken anything
        return;        // running already
    }
    const bool newNetwork = (flags & CLONE_NEWNET) != 0;
    if (newNetwork) {
        checkInterfaceNames(link);
    }

    const sigset_t before = holdSignals();
    ScopeGuard letSignalsThrough([&before] { ::sigprocmask(SIG_SETMASK, &before, nullptr); });
    // taken away by the child, once who enters the container can see no harm
    mark.set(namesOf(flags));
    bool rulesAreSet = false;
    // once the child has ended: without a pinned network no file tells of the rules
    ScopeGuard markFailure([&] { rulesAreSet ? mark.set("") : mark.clear(); });
    int syncFd = -1;
    const pid_t child = forkUnshare(flags, syncFd);
    if (child == 0) {
        letSignalsThrough.dismiss();  // the child is to finish its set-up, or to say what failed
        markFailure.dismiss();
        // a parent that was killed before it had pinned all releases the child too: what that has
        // left behind stays marked
        const FileDescriptor none;
        const UnfinishedMark ended(mark.names(kPinned) ? lock : none, handle.userName);
        setUpInside(handle, link, flags, account, ended);
    }
    FileDescriptor sync(syncFd);
    const auto releaseAndWait = [&sync, child] {
        sync.reset();
        int status = 0;  // not looked at: the child reports its own failures
        while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
        }
    };
    ScopeGuard neverLeaveTheChild(releaseAndWait);
    requireOwnNamespaces(child, flags);
    if (newNetwork) {
        if (interrupted) {
            removeLeftRules(link);
        }
        rulesAreSet = true;
        setUpHostSide(link, child);
    }
    pinNamespaces(handle, child, flags);
    markFailure.dismiss();
    mark.set(namesOf(flags) + kPinned);
    neverLeaveTheChild.dismiss();
    releaseAndWait();
    progress("OK.");
}
