#include "fs/overlay_layer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <unordered_set>

#include "fs/directory_mirror.h"
#include "fs/filtered_copy.h"
#include "fs/layer_paths.h"
#include "fs/path_expansion.h"
#include "fs/path_resolution.h"
#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/settings.h"

namespace {

/// To the overlay file system a character device 0:0 means that the name is deleted, see the
/// kernel's Documentation/filesystems/overlayfs.rst.
constexpr mode_t kWhiteoutMode = S_IFCHR | 0000;
constexpr dev_t kWhiteoutDevice = 0;

constexpr const char* kOpaqueAttribute = "trusted.overlay.opaque";

/// Step 1: hides all entries of a directory except the listed ones.
void hideUnlisted(const std::string& lowerRoot, const std::string& layerDir,
                  const std::string& directory, const std::list<std::string>& patterns) {
    const std::string lowerPath = lowerRoot + directory;
    const DirectoryStream lower(::opendir(lowerPath.c_str()));
    if (lower == nullptr) {
        const int error = errno;
        if (error != ENOENT) {
            report("Cannot open " + lowerPath + ": " + errorText(error));
        }
        return;
    }
    if (!TreeMirror(lowerRoot, layerDir).mirror(componentsOf(directory))) {
        return;
    }
    const std::string layerPath = layerDir + directory;
    const FileDescriptor layer(::open(layerPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!layer.valid()) {
        reportSystemError("Cannot open ", layerPath, ": ");
        return;
    }
    // deliberate: compared with the bare name, so a "*" pattern, which expands to full paths, keeps
    // nothing visible
    const auto expanded = expandPaths(lowerPath, patterns);
    const std::unordered_set<std::string> visible(expanded.begin(), expanded.end());
    while (const dirent* entry = ::readdir(lower.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && !visible.contains(name)) {
            ::mknodat(layer.get(), name.c_str(), kWhiteoutMode, kWhiteoutDevice);
        }
    }
}

/// Step 2: hides one path.
void hidePath(TreeMirror& parents, const std::string& layerDir, const std::string& item) {
    const std::string path = anchored(item);
    const std::string parent = parentOf(path);
    // a whiteout below a link would hide the name in the wrong directory
    if (!openWithoutLinks(parent).valid()) {
        if (errno == ELOOP) {
            report("Path contains symlink, ignoring: " + item);
        }
        return;
    }
    if (!parents.mirror(componentsOf(parent))) {
        return;
    }
    const std::string target = layerDir + withoutSlashesAtEnd(path);
    ::mknod(target.c_str(), kWhiteoutMode, kWhiteoutDevice);
}

/// False when something other than a whiteout is at the layer's path.
bool clearWhiteout(const std::string& layerPath) {
    struct stat existing {};
    if (::stat(layerPath.c_str(), &existing) != 0) {
        return true;
    }
    if (!S_ISCHR(existing.st_mode)) {
        report(layerPath + " already exists - don't know...!?");
        return false;
    }
    ::unlink(layerPath.c_str());
    return true;
}

/// Step 3: makes a directory appear empty.
void emptyDirectory(const std::string& lowerRoot, const std::string& layerDir,
                    const std::string& item) {
    if (isBelowProc(item)) {
        return;
    }
    const std::string path = anchored(item);
    const std::string lowerPath = lowerRoot + path;
    const std::string layerPath = layerDir + withoutSlashesAtEnd(path);
    struct stat lower {};
    if (::stat(lowerPath.c_str(), &lower) != 0) {
        reportSystemError("stat(", lowerPath, ") failed: ");
        return;
    }
    if (!clearWhiteout(layerPath) ||
        !TreeMirror(lowerRoot, layerDir).mirror(componentsOf(parentOf(path)))) {
        return;
    }
    const auto failed = [&layerPath](const char* call) {
        reportSystemError(call, "(", layerPath, ") failed: ");
    };
    if (::mkdir(layerPath.c_str(), lower.st_mode) != 0) {
        failed("mkdir");
    } else if (::chown(layerPath.c_str(), lower.st_uid, lower.st_gid) != 0) {
        failed("chown");
    } else if (::setxattr(layerPath.c_str(), kOpaqueAttribute, "y", 1, 0) != 0) {
        failed("setattr");
    }
}

/// Step 4: creates the mount point of a bind mount.
void prepareBindTarget(TreeMirror& parents, const std::string& layerDir, const std::string& item) {
    struct stat source {};
    if (::stat(item.c_str(), &source) != 0) {
        const int error = errno;
        if (error != ENOENT || debugMode() != 0) {
            report(item + ": cannot prepare bind-mount: " + errorText(error));
        }
        return;
    }
    const std::string path = anchored(item);
    const bool isDirectory = S_ISDIR(source.st_mode);
    if (!parents.mirror(componentsOf(isDirectory ? path : parentOf(path)))) {
        reportSystemError("mkdir(", layerDir, item, ") failed (2): ");
        return;
    }
    if (isDirectory) {
        return;
    }
    const std::string target = layerDir + path;
    const FileDescriptor file(::open(target.c_str(), O_CREAT | O_CLOEXEC, 0640));
    if (!file.valid()) {
        reportSystemError("touch(", target, ") for bind-mount failed: ");
    }
}

}  // namespace

void buildOverlayLayer(const std::string& lowerRoot, const std::string& layerDir,
                       const std::string& userName, const LayerRules& rules) {
    // the order is fixed: a later step may replace the result of an earlier one
    for (const auto& [directory, patterns] : rules.allowlists) {
        hideUnlisted(lowerRoot, layerDir, anchored(directory), patterns);
    }
    TreeMirror hiddenParents(lowerRoot, layerDir);
    for (const std::string& path : expandPaths(lowerRoot, rules.hide)) {
        hidePath(hiddenParents, layerDir, path);
    }
    for (const std::string& path : expandPaths(lowerRoot, rules.empty)) {
        emptyDirectory(lowerRoot, layerDir, path);
    }
    TreeMirror bindParents("", layerDir);
    for (const std::string& path : rules.bind) {
        prepareBindTarget(bindParents, layerDir, path);
    }
    writeFilteredCopies(rules.filters, layerDir, userName);
}
