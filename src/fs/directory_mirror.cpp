#include "fs/directory_mirror.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "util/errors.h"

namespace {

bool makeLike(const struct stat& source, const std::string& dst) {
    struct stat existing {};
    if (::stat(dst.c_str(), &existing) == 0) {
        return true;
    }
    int error = errno;
    if (error != ENOENT) {
        report(dst + ": " + errorText(error));
        return false;
    }
    if (::mkdir(dst.c_str(), source.st_mode) != 0) {
        error = errno;
        report("mkdir(" + dst + ") failed (1): " + errorText(error));
        return false;
    }
    if (::chown(dst.c_str(), source.st_uid, source.st_gid) != 0) {
        error = errno;
        report("WARN: chown(" + dst + ") failed: " + errorText(error));
    }
    return true;
}

/// Does one level: extends both paths by `component` and creates the directory.
bool descend(std::string& src, std::string& dst, const std::string& component) {
    if (!component.empty()) {
        src += "/" + component;
        dst += "/" + component;
    }
    struct stat source {};
    if (::stat(src.c_str(), &source) != 0) {
        report("recMkDir: '" + src + "' doesn't exist");
        return false;
    }
    return makeLike(source, dst);
}

}  // namespace

bool recMkDir(std::string& src, std::string& dst, std::list<std::string> components) {
    if (components.empty()) {
        return true;
    }
    if (!descend(src, dst, components.front())) {
        return false;
    }
    std::string deeperSource = src;
    std::string deeperTarget = dst;
    for (components.pop_front(); !components.empty(); components.pop_front()) {
        if (!descend(deeperSource, deeperTarget, components.front())) {
            return false;
        }
    }
    return true;
}

bool TreeMirror::mirror(std::list<std::string> components) {
    std::string path;
    while (!components.empty() && mirrored.contains(path + "/" + components.front())) {
        path += "/" + components.front();
        components.pop_front();
    }
    std::string source = sourceRoot + path;
    std::string target = targetRoot + path;
    if (!recMkDir(source, target, components)) {
        return false;
    }
    for (const std::string& component : components) {
        mirrored.insert(path += "/" + component);
    }
    return true;
}
