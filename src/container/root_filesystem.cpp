#include "container/root_filesystem.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "config/configuration.h"
#include "config/file_filters.h"
#include "container/pivot.h"
#include "container/root_mounts.h"
#include "fs/overlay_layer.h"
#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/runtime_directory.h"
#include "util/scope_guard.h"

namespace {

constexpr const char* kWorkspace = "/mnt";
constexpr const char* kLowerRoot = "/mnt/root";
constexpr const char* kOverlay = "overlay";
constexpr mode_t kDirectoryMode = 0755;

std::string layersOption() {
    return std::string("lowerdir=") + kLayer + ":" + kLowerRoot;
}

/// False when a mount at "/mnt" could propagate to the host's namespace.
bool isPrivateAlready() {
    MountTable table;
    readMountTable(table, "/", kMountInfo);
    for (const MountEntry& entry : table) {
        const bool underWorkspace = entry.mountPoint() == "/" || entry.mountPoint() == kWorkspace;
        if (underWorkspace && !entry.isPrivate()) {
            return false;
        }
    }
    return true;
}

/// From here on the host's mounts still propagate into this namespace, and none of ours to the
/// host.
void stopPropagation() {
    if (::mount("none", "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) {
        reportSystemError("mount(unshare) failed: ");
        if (!isPrivateAlready()) {
            throw std::runtime_error("mounts are shared with the host, giving up");
        }
    }
}

void hideRuntimeDirectory(Pinned pinned) {
    if (pinned == Pinned::Unknown) {
        if (::umount(runtimeDirectory.c_str()) == 0) {
            return;
        }
        reportSystemError("umount(kiv) failed: ");
    }
    // MNT_DETACH, because the directory is busy when other containers run: the new namespace has
    // copies of their namespace mounts. None of those may stay in reach of what is mounted next.
    ::umount2(runtimeDirectory.c_str(), MNT_DETACH);
}

void makeDirectory(const char* path, const char* failure) {
    if (::mkdir(path, kDirectoryMode) != 0) {
        throw systemError(failure);
    }
}

/// The host's root with the generated layer on top, read-only because no layer is writable.
FileDescriptor mountOverlay(const std::string& userName) {
    if (::mount(nullptr, kWorkspace, "tmpfs", 0, nullptr) != 0) {
        throw systemError("Cannot create tmpfs at /mnt: ");
    }
    makeDirectory(kLowerRoot, "mkdir(root) failed: ");
    // not recursive: only the root file system itself, without the mounts on it
    if (::mount("/", kLowerRoot, nullptr, MS_BIND, nullptr) != 0) {
        throw systemError("bind-mount(root) failed: ");
    }
    makeDirectory(kLayer, "mkdir(kiv) failed: ");
    const Configuration& config = configuration();
    buildOverlayLayer(
        kLowerRoot, kLayer, userName,
        {config.allowlists, config.hide, config.empty, config.bind, builtInFileFilters()});
    makeDirectory(kTempRoot, "mkdir(temp-root) failed: ");
    if (::mount(kOverlay, kTempRoot, kOverlay, 0, layersOption().c_str()) != 0) {
        throw systemError("overlay-mount(temp-root) failed: ");
    }
    return FileDescriptor(::open(kTempRoot, O_PATH | O_DIRECTORY | O_CLOEXEC));
}

/// From now on anyone who enters the namespace sees an empty directory that nobody may read.
void coverRoot() {
    const unsigned long flags = MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC;
    if (::mount("none", "/", "tmpfs", flags, "mode=0") != 0) {
        reportSystemError("mount(cover) failed: ");
    }
}

}  // namespace

void buildRootFilesystem(const std::string& userName, const std::optional<PasswordEntry>& account,
                         Pinned pinned) {
    stopPropagation();
    ScopeGuard leaveNoViewOfTheHost(coverRoot);
    hideRuntimeDirectory(pinned);
    const FileDescriptor root = mountOverlay(userName);
    if (account && !account->homeDirectory.empty()) {
        const bool isBound = mountHome(root, account->homeDirectory);
        // a container without its home is better than none, but worse than the earlier view
        if (!isBound && pinned == Pinned::Some) {
            throw std::runtime_error("the home cannot be mounted, giving up");
        }
    }
    mountPrivateParts(root);
    mountBinds(root);
    pivotInto(kTempRoot, root);
    leaveNoViewOfTheHost.dismiss();
}

bool showsBuiltRoot(const MountTable& table) {
    const auto isRoot = [](const MountEntry& entry) { return entry.mountPoint() == "/"; };
    if (std::count_if(table.begin(), table.end(), isRoot) != 1) {
        return false;
    }
    const MountEntry& root = table.get("/");
    const std::string options = "," + root.options() + ",";
    return root.type() == kOverlay && options.find("," + layersOption() + ",") != std::string::npos;
}
