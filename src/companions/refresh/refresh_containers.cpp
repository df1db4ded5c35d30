#include "companions/refresh/refresh_containers.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

#include "companions/refresh/in_child.h"
#include "container/container_handle.h"
#include "container/each_account.h"
#include "container/enter.h"
#include "container/fork_unshare.h"
#include "container/namespaces.h"
#include "container/root_filesystem.h"
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

constexpr const char* kViewKind = "mnt";
constexpr const char* kOwnProcess = "/proc/self";

bool isStopped(const ContainerHandle& handle) {
    return std::none_of(std::begin(kNamespaceKinds), std::end(kNamespaceKinds),
                        [&handle](const NamespaceKind& kind) {
                            return mayBeNamespace(namespaceFile(handle.userName, kind.name));
                        });
}

/// Opens the other mount namespaces of processes in the account's network namespace: views that
/// earlier refreshes have replaced, and any other that a process has created.
std::vector<FileDescriptor> openOtherViews(const ContainerHandle& handle,
                                           const std::vector<ProcessPlace>& places) {
    const std::vector<pid_t> processes =
        processesWithOtherViews(places, inodeOf(namespaceFile(handle.userName, "net")),
                                {inodeOf(namespaceFile(handle.userName, kViewKind)),
                                 getNamespaceInode(::getpid(), kViewKind)});
    std::vector<FileDescriptor> views;
    for (const pid_t pid : processes) {
        FileDescriptor view(::open(namespaceLink(pid, kViewKind).c_str(), O_RDONLY | O_CLOEXEC));
        if (view.valid()) {  // else its process has ended
            views.push_back(std::move(view));
        }
    }
    return views;
}

/// `self` is the host's /proc/self: the container's own proc may be missing.
bool isAtBuiltRoot(const FileDescriptor& self) {
    if (::fchdir(self.get()) != 0) {
        throw systemError("fchdir(/proc/self) failed: ");
    }
    MountTable table;
    readMountTable(table, "/", "mountinfo");
    return showsBuiltRoot(table);
}

/// A remount makes the kernel drop all cached names of the overlay that are not in use. They are
/// looked up again and then lead to the host's present files. Only for a built root: in a namespace
/// whose "/" is the host's root, which an interrupted start leaves, the same call would make the
/// host read-only.
void dropNames() {
    if (::mount(nullptr, "/", nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        throw systemError("remount(/) failed: ");
    }
}

/// Runs in a child, because a process cannot leave a container again.
void dropNamesOf(ContainerHandle& handle, const std::vector<FileDescriptor>& otherViews) {
    const FileDescriptor self(::open(kOwnProcess, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!self.valid()) {
        throw systemError("open(/proc/self) failed: ");
    }
    joinNamespaces(handle);
    if (!isAtBuiltRoot(self)) {
        throw std::runtime_error(namespaceFile(handle.userName, kViewKind) +
                                 ": the view is not complete, stop the container and start it: "
                                 "kivctl stop " +
                                 handle.userName + ", kivctl start " + handle.userName);
    }
    dropNames();
    for (const FileDescriptor& view : otherViews) {
        if (::setns(view.get(), CLONE_NEWNS) != 0) {
            throw systemError("setns() failed: ");
        }
        if (isAtBuiltRoot(self)) {
            dropNames();
        }
    }
}

/// A mount namespace with the host's mounts except the namespace files of the containers. A new
/// namespace copies all mounts of another one, among them two namespace files per container:
/// copying the host's own for each account would make the cost per account grow with their number.
/// Later mounts of the host, such as an automounted home, propagate there, because the host's
/// mounts are shared. Invalid when they are not shared, or when the namespace cannot be created.
FileDescriptor hostMountsAlone() {
    const std::optional<MountEntry> root = findMount("/", kMountInfo);
    if (!root || root->isPrivate()) {
        return {};
    }
    int syncFd = -1;
    const pid_t child = forkUnshare(CLONE_NEWNS, syncFd);
    if (child == 0) {
        const bool done = ::mount("none", "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0 &&
                          ::umount2(runtimeDirectory.c_str(), MNT_DETACH) == 0;
        ::_exit(done ? 0 : 1);
    }
    FileDescriptor sync(syncFd);
    FileDescriptor mounts(::open(namespaceLink(child, kViewKind).c_str(), O_RDONLY | O_CLOEXEC));
    const bool isOwn =
        inodeOf(namespaceLink(child, kViewKind)) != getNamespaceInode(::getpid(), kViewKind);
    return releaseAndWait(child, sync) == 0 && isOwn ? std::move(mounts) : FileDescriptor();
}

/// Data that all accounts of a run share.
struct Run {
    Refresh what = Refresh::NewView;
    bool isNamed = false;                ///< the caller named one account
    std::vector<ProcessPlace> places{};  ///< at the start; later entries join the pinned view
    std::optional<FileDescriptor> hostMounts{};  ///< created when first needed
};

/// The mounts that a new view is copied from; null for the host's own.
const FileDescriptor* startMounts(Run& run) {
    if (run.isNamed) {
        return nullptr;
    }
    if (!run.hostMounts) {
        run.hostMounts = hostMountsAlone();
    }
    return run.hostMounts->valid() ? &*run.hostMounts : nullptr;
}

/// Lets a child build the view in a new mount namespace. Only the returned descriptor keeps the
/// namespace alive. When the child fails, it prints the reason, and this throws std::runtime_error.
FileDescriptor buildView(const ContainerHandle& handle, const RunMark& mark,
                         const FileDescriptor* startMounts) {
    const SetUpPlan plan{
        handle.userName, {}, Util::getpwuid(handle.uid), CLONE_NEWNS, Pinned::Some};
    int syncFd = -1;
    const pid_t child = forkUnshare(plan.flags, syncFd, startMounts);
    if (child == 0) {
        runSetUpChild(plan, mark);
    }
    FileDescriptor sync(syncFd);
    ScopeGuard neverLeaveTheChild([child, &sync] { releaseAndWait(child, sync); });
    requireOwnNamespaces(child, plan.flags);
    const std::string link = namespaceLink(child, kViewKind);
    FileDescriptor view(::open(link.c_str(), O_RDONLY | O_CLOEXEC));
    if (!view.valid()) {
        throw systemError(link, ": ");
    }
    neverLeaveTheChild.dismiss();
    if (releaseAndWait(child, sync) != 0) {
        throw std::runtime_error("the new view could not be built, the earlier one stays");
    }
    return view;
}

/// Replaces the pinned view. Between unmounting and mounting the mark is set: a process that joins
/// without the account's lock finds it, and so does the next start if this process is killed there.
void pinInstead(const ContainerHandle& handle, const FileDescriptor& view, const RunMark& mark) {
    const std::string target = namespaceFile(handle.userName, kViewKind);
    const std::string source = std::string(kOwnProcess) + "/fd/" + std::to_string(view.get());
    // The administrator may have made all mounts shared since the start. The kernel would still
    // unmount the earlier view then, but refuse to bind-mount a mount namespace where the mount
    // would propagate.
    if (::mount(nullptr, runtimeDirectory.c_str(), nullptr, MS_PRIVATE | MS_REC, nullptr) != 0) {
        throw systemError(runtimeDirectory, ": cannot make private: ");
    }
    if (!mark.write({CLONE_NEWNS})) {
        throw systemError(runtimeDirectory, ": cannot mark a container that is being refreshed: ");
    }
    if (::umount2(target.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0) {
        const int error = errno;
        mark.clear();
        throw systemError("Cannot unmount " + target + ": ", error);
    }
    progress("bind-mounting " + target);
    if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        throw systemError(source, ": mount(", target, ") failed: ");
    }
    mark.clear();
}

/// False when the container is stopped and the caller did not name the account.
bool refreshContainer(const std::string& userName, Run& run) {
    ContainerHandle handle(userName);
    const FileDescriptor lock = lockAccount(handle);
    if (!run.isNamed && isStopped(handle)) {
        return false;
    }
    progress("refreshing container: " + userName);
    const std::vector<FileDescriptor> otherViews = openOtherViews(handle, run.places);
    runInChild([&handle, &otherViews] { dropNamesOf(handle, otherViews); });
    if (run.what == Refresh::NewView) {
        const RunMark mark(userName);
        pinInstead(handle, buildView(handle, mark, startMounts(run)), mark);
    }
    progress("OK.");
    return true;
}

}  // namespace

std::vector<pid_t> processesWithOtherViews(const std::vector<ProcessPlace>& places,
                                           std::uint64_t network,
                                           std::unordered_set<std::uint64_t> known) {
    std::vector<pid_t> processes;
    for (const ProcessPlace& place : places) {
        if (place.network == network && known.insert(place.mounts).second) {
            processes.push_back(place.pid);
        }
    }
    return processes;
}

RefreshResult refreshContainers(const char* user, Refresh what) {
    ::umask(kSetUpUmask);
    Run run{what, user != nullptr, listProcessPlaces()};
    RefreshResult result;
    result.failures = forEachAccount(user, [&](const AccountEntry& account) {
        if (refreshContainer(account.name, run)) {
            result.accounts.push_back(account.name);
        }
    });
    return result;
}
