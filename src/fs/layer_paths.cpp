#include "fs/layer_paths.h"

#include <algorithm>

#include "util/string_util.h"

std::list<std::string> componentsOf(const std::string& path) {
    return StringUtil::split<std::list<std::string>>(path, "/", /*dropEmpty=*/true, false);
}

bool isBelowProc(const std::string& item) {
    return item.starts_with("/proc/");
}

bool isAtOrBelow(const std::string& path, const std::string& directory) {
    return path == directory || path.starts_with(directory + "/");
}

std::string parentOf(const std::string& path) {
    const auto lastName = path.find_last_not_of('/');
    const auto slash = lastName == std::string::npos ? 0 : path.rfind('/', lastName);
    if (slash == std::string::npos) {
        return "";
    }
    return path.substr(0, std::max<std::string::size_type>(slash, 1));
}

std::string anchored(const std::string& item) {
    const auto components = componentsOf(item);
    const bool climbs = std::find(components.begin(), components.end(), "..") != components.end();
    if (item.empty() || (item.front() == '/' && !climbs)) {
        return item;
    }
    std::list<std::string> resolved;
    for (const std::string& name : components) {
        if (name == "..") {
            if (!resolved.empty()) {
                resolved.pop_back();
            }
        } else if (name != ".") {
            resolved.push_back(name);
        }
    }
    std::string path;
    for (const std::string& name : resolved) {
        path += "/" + name;
    }
    return path;
}

std::string withoutSlashesAtEnd(const std::string& path) {
    return path.substr(0, path.find_last_not_of('/') + 1);
}
