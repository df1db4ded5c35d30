#include "fs/mount_table.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "util/errors.h"
#include "util/runtime_directory.h"
#include "util/string_util.h"

namespace {

constexpr std::size_t kRootField = 3;
constexpr std::size_t kMountPointField = 4;
constexpr std::size_t kFirstOptionalField = 6;

bool isPropagationTag(const std::string& field) {
    return field.starts_with("shared:") || field.starts_with("master:") ||
           field.starts_with("propagate_from:") || field == "unbindable";
}

}  // namespace

MountEntry::MountEntry(const std::vector<std::string>& fields)
    : mountPointField(fields[kMountPointField]), rootField(fields[kRootField]) {
    for (std::size_t i = kFirstOptionalField; i < fields.size() && fields[i] != "-"; ++i) {
        if (isPropagationTag(fields[i])) {
            return;
        }
    }
    privateFlag = true;
}

bool MountTable::contains(const std::string& mountPoint) const {
    return find(mountPoint) != nullptr;
}

const MountEntry& MountTable::get(const std::string& mountPoint) const {
    const MountEntry* entry = find(mountPoint);
    if (entry == nullptr) {
        throw std::out_of_range("No such mount point: " + mountPoint);
    }
    return *entry;
}

void MountTable::append(MountEntry entry) {
    entries.push_back(std::move(entry));
}

const MountEntry* MountTable::find(const std::string& mountPoint) const {
    const auto found = std::find_if(
        entries.begin(), entries.end(),
        [&mountPoint](const MountEntry& entry) { return entry.mountPoint() == mountPoint; });
    return found == entries.end() ? nullptr : &*found;
}

void readMountTable(MountTable& out, const std::string& prefix, const std::string& path) {
    out.clear();
    std::ifstream file(path);
    if (!file) {
        const int error = errno;
        throw systemError("cannot open '" + path + "': ", error);
    }
    std::string line;
    while (std::getline(file, line)) {
        const auto fields =
            StringUtil::split<std::vector<std::string>>(line, " ", /*dropEmpty=*/true, false);
        if (fields.size() <= kFirstOptionalField) {
            report("mountinfo: invalid line: " + line);
        } else if (fields[kMountPointField].starts_with(prefix)) {
            out.append(MountEntry(fields));
        }
    }
    if (file.bad()) {
        const int error = errno;
        throw systemError("error while reading '" + path + "': ", error);
    }
}

bool checkNamespaceMount(const std::string& userName, const MountTable& table,
                         const std::string& kind) {
    const std::string path = runtimeDirectory + "/" + userName + "@" + kind;
    if (!table.contains(path)) {
        return false;
    }
    const std::string& root = table.get(path).root();
    if (root.starts_with(kind + ":")) {
        return true;
    }
    report("Unexpected mount source for " + path + ": " + root);
    return false;
}
