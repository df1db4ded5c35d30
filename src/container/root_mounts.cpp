#include "container/root_mounts.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "config/configuration.h"
#include "fs/directory_mirror.h"
#include "fs/layer_paths.h"
#include "fs/path_resolution.h"
#include "util/errors.h"
#include "util/output.h"
#include "util/settings.h"

namespace {

constexpr const char* kEmptyDirectory = "/mnt/empty-dir";
constexpr unsigned long kRunFlags = MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RELATIME;

/// The result of bindOnto when the target is the root itself; mount(2) does not return this error
/// here.
constexpr int kIsRoot = EBUSY;

/// Mounts `source` at `path` below `root`. Returns 0, or the errno of the first failure; for a
/// source that could not be opened that is the errno which opening it left. The root itself is
/// refused as a target: a mount over it would hide the container's view, and there would be nothing
/// to pivot into.
int bindOnto(const FileDescriptor& source, const FileDescriptor& root, const std::string& path) {
    if (!source.valid()) {
        return errno;
    }
    const FileDescriptor target = openBeneath(root, path);
    struct stat place {};
    struct stat top {};
    if (!target.valid() || ::fstat(target.get(), &place) != 0 || ::fstat(root.get(), &top) != 0) {
        return errno;
    }
    if (place.st_dev == top.st_dev && place.st_ino == top.st_ino) {
        return kIsRoot;
    }
    return bindMount(source, target) == 0 ? 0 : errno;
}

void mountTerminals() {
    const std::string target = std::string(kTempRoot) + "/dev/pts";
    if (::mount(nullptr, target.c_str(), "devpts", 0, "newinstance,max=64") != 0) {
        reportSystemError("mount(/dev/pts) failed: ");
    }
}

void mountProc() {
    const std::string target = std::string(kTempRoot) + "/proc";
    if (::mount(nullptr, target.c_str(), "proc", MS_RDONLY, "hidepid=2") != 0) {
        reportSystemError("remount(/proc) failed: ");
    }
}

void coverProcPaths(const FileDescriptor& root) {
    if (::mkdir(kEmptyDirectory, 0755) != 0) {
        throw systemError("mkdir(", kEmptyDirectory, ") failed: ");
    }
    for (const std::string& path : configuration().empty) {
        if (!isBelowProc(path)) {
            continue;
        }
        const FileDescriptor source(::open(kEmptyDirectory, O_PATH | O_DIRECTORY | O_CLOEXEC));
        const int error = bindOnto(source, root, path);
        if (error != 0) {
            report("mount(" + path + ") failed: " + errorText(error));
        }
    }
}

/// Login programs record sessions in it, utmp(5). Optional, so a failure is at most a warning.
void createUtmp(const std::string& run) {
    const FileDescriptor utmp(
        ::open((run + "/utmp").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0664));
    const group* owner = utmp.valid() ? ::getgrnam("utmp") : nullptr;
    if (owner != nullptr && ::fchown(utmp.get(), 0, owner->gr_gid) != 0) {
        reportSystemError("WARN: fchown(", run, "/utmp) failed: ");
    }
}

void mountRun() {
    const std::string run = std::string(kTempRoot) + "/run";
    if (::mount(nullptr, run.c_str(), "tmpfs", kRunFlags, "size=1m,mode=755") != 0) {
        throw systemError("Cannot create tmpfs at /run: ");
    }
    // for the database's socket; without the directory clients still reach the database by address
    ::mkdir((run + "/mysqld").c_str(), 0755);
    createUtmp(run);
}

}  // namespace

bool mountHome(const FileDescriptor& root, const std::string& home) {
    const FileDescriptor source = openThroughRootLinks(home, LastLink::Keep);
    struct stat status {};
    if (!source.valid() || ::fstat(source.get(), &status) != 0) {
        reportSystemError(home, ": ");
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        return true;
    }
    // Creates the mount point in the top layer, with the owners and modes of the running host: a
    // home on its own file system is not below the lower root. Nothing may look the path up in the
    // overlay before this: the overlay would cache that it does not exist.
    TreeMirror("", kLayer).mirror(componentsOf(home));
    int error = bindOnto(source, root, home);
    if (error != 0) {
        report("bind-mount(" + home + " to " + kTempRoot + home + ") failed: " + errorText(error));
    }
    if (error == kIsRoot) {
        return true;  // its tmp directory is the host's own
    }
    const bool isBound = error == 0;
    const std::string tmp = home + "/tmp";
    progress("tmpdir: " + tmp);
    // the account may put a link there, which root must not follow; the slash makes an automounter
    // mount the directory
    error = bindOnto(openBeneath(source, "tmp/"), root, "/tmp");
    if (error != 0) {
        report("mount(" + tmp + ") to /tmp failed: " + errorText(error));
    }
    return isBound;
}

void mountPrivateParts(const FileDescriptor& root) {
    mountTerminals();
    mountProc();
    coverProcPaths(root);
    mountRun();
}

void mountBinds(const FileDescriptor& root) {
    for (const std::string& path : configuration().bind) {
        // mount(2) refuses an empty source with EINVAL, before it looks for a file
        const int error = path.empty()
                              ? EINVAL
                              : bindOnto(openThroughRootLinks(path, LastLink::Follow), root, path);
        if (error != 0 && (error != ENOENT || debugMode() != 0)) {
            report("bind-mount(" + path + ") failed: " + errorText(error));
        }
    }
}
