#include "companions/check/path_items.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "companions/check/misspelling.h"
#include "companions/check/obeyed_paths.h"
#include "fs/layer_paths.h"
#include "fs/path_resolution.h"

namespace {

bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

/// Checks how the text is written. False when it is not a path at all.
bool checkForm(unsigned long line, const std::string& text, const FindingsOf& findings) {
    if (text.empty()) {
        findings.warn(line, "a line of white space is an empty item: delete the line");
        return false;
    }
    if (text.find(" #") != std::string::npos || text.find("\t#") != std::string::npos) {
        findings.warn(line, "'" + text +
                                "': a comment behind an item is part of it: put the comment on a "
                                "line of its own");
        return false;
    }
    if (text.front() != '/') {
        findings.warn(line, "'" + text + "' is relative: write the path from the root on");
    }
    if (text.size() > 1 && text.back() == '/') {
        findings.warn(line, "'" + text + "' has a slash at its end: leave it out");
    }
    const auto names = componentsOf(text);
    if (std::find(names.begin(), names.end(), "..") != names.end()) {
        findings.warn(line, "'" + text + "' has '..' in it: write the path that is meant");
    }
    return true;
}

/// Checks the characters of patterns. False when the item names no path that exists.
bool checkPattern(const ConfigurationLine& item, const std::string& text,
                  const FindingsOf& findings) {
    if (isFutilePattern(item)) {
        findings.error(item.number,
                       "'" + text + "' has no effect: there are no patterns, name each path");
        return false;
    }
    if (text.find_first_of("*?[") != std::string::npos && !exists(text)) {
        findings.warn(item.number,
                      "'" + text + "' is taken literally: there are no patterns, name each path");
        return false;
    }
    return true;
}

void checkExistence(unsigned long line, const std::string& path, const KnownPaths& known,
                    const FindingsOf& findings) {
    const auto missing = findMissing(path, known);
    if (!missing) {
        return;
    }
    if (missing->meant) {
        findings.warn(line, "'" + path + "' does not exist: is '" + *missing->meant + "' meant?");
    } else {
        findings.note(line, "'" + path + "' does not exist on this host");
    }
}

void checkHidden(const ConfigurationLine& item, const std::string& path,
                 const FindingsOf& findings) {
    if (isAtOrBelow(path, "/proc") || isAtOrBelow(path, "/run") || isAtOrBelow(path, "/tmp")) {
        const std::string own = path.substr(0, path.find('/', 1));
        findings.warn(item.number, "'" + path + "' is not hidden: the container has its own " +
                                       own + " in that place");
    } else if (!openWithoutLinks(parentOf(path)).valid() && errno == ELOOP) {
        findings.error(item.number, "'" + path +
                                        "' is not hidden: a directory in the path is a symbolic "
                                        "link, name the path that it leads to");
    }
}

void checkEmptied(const ConfigurationLine& item, const std::string& path,
                  const FindingsOf& findings) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)) {
        findings.error(item.number,
                       "'" + path + "' is not a directory: only directories can be emptied");
    }
}

void checkBound(const ConfigurationLine& item, const std::string& path,
                const FindingsOf& findings) {
    if ((path.starts_with("/run/") || path.starts_with("/var/run/")) &&
        !isAtOrBelow(path, kDatabaseSocket)) {
        findings.warn(item.number, "'" + path +
                                       "' is not bound: the container's /run is its own and has "
                                       "a place for /run/mysqld only");
        return;
    }
    if (const auto reason = whyObeyed(path)) {
        findings.error(item.number, "'" + path + "' gives away the host: " + *reason +
                                        ", and a root program inside could write it");
        return;
    }
    static const UserHomes homes;
    if (const auto user = homes.userIn(path)) {
        findings.warn(item.number,
                      "'" + path + "' has the home of '" + *user + "': every container shows it");
    }
    // compares directories: for files an overlay reports the device numbers of other file systems
    struct stat status {};
    struct stat directory {};
    struct stat root {};
    if (::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
        ::stat(parentOf(path).c_str(), &directory) == 0 && ::stat("/", &root) == 0 &&
        directory.st_dev == root.st_dev) {
        findings.note(item.number, "'" + path +
                                       "' is a plain file, which is visible without this item: "
                                       "bound, a root program inside could write it");
    }
}

}  // namespace

void checkPathItem(const ConfigurationLine& item, const std::string& text, const KnownPaths& known,
                   const FindingsOf& findings) {
    if (!checkForm(item.number, text, findings) || !checkPattern(item, text, findings)) {
        return;
    }
    const std::string path = pathOf(text);
    if (path == "/") {
        findings.error(item.number, "the root directory cannot be an item");
        return;
    }
    checkExistence(item.number, path, known, findings);
    if (item.section == "hide") {
        checkHidden(item, path, findings);
    } else if (item.section == "empty") {
        checkEmptied(item, path, findings);
    } else if (item.section == "bind") {
        checkBound(item, path, findings);
    }
}

void checkListedName(const ConfigurationLine& item, const KnownPaths& known,
                     const FindingsOf& findings) {
    const std::string& name = item.item;
    if (name.empty() || name.find(" #") != std::string::npos ||
        name.find("\t#") != std::string::npos) {
        checkForm(item.number, name, findings);
    } else if (name.find('/') != std::string::npos) {
        findings.warn(item.number,
                      "'" + name +
                          "' keeps nothing visible: an allowlist has names of entries, "
                          "not paths");
    } else if (name.find_first_of("*?[") != std::string::npos) {
        findings.warn(item.number, "'" + name +
                                       "' is taken literally: an allowlist has no patterns, list "
                                       "each name");
    } else if (exists(item.directory)) {
        checkExistence(item.number, pathOf(item.directory + "/" + name), known, findings);
    }
}

std::string pathOf(const std::string& item) {
    const std::string path = withoutSlashesAtEnd(anchored(item));
    return path.empty() ? "/" : path;
}

bool isFutilePattern(const ConfigurationLine& item) {
    return (item.section == "hide" || item.section == "empty") &&
           item.item.find('*') != std::string::npos;
}
