#include "fs/mount_table.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "util/errors.h"
#include "util/line_reader.h"
#include "util/runtime_directory.h"
#include "util/word_reader.h"

namespace {

// proc_pid_mountinfo(5) counts from one
constexpr int kRootField = 4;
constexpr int kMountPointField = 5;
constexpr int kFirstOptionalField = 7;

bool isPropagationTag(std::string_view field) {
    return field.starts_with("shared:") || field.starts_with("master:") ||
           field.starts_with("propagate_from:") || field == "unbindable";
}

/// Nothing when the line is too short.
std::optional<MountEntry> parseLine(const std::string& line) {
    WordReader fields(line, " ");
    std::string_view root;
    std::string_view mountPoint;
    std::string_view field;
    for (int number = 1; number <= kFirstOptionalField; ++number) {
        field = fields.next();
        if (number == kRootField) {
            root = field;
        } else if (number == kMountPointField) {
            mountPoint = field;
        }
    }
    if (field.empty()) {
        return std::nullopt;
    }
    while (!field.empty() && field != "-" && !isPropagationTag(field)) {
        field = fields.next();
    }
    return MountEntry(mountPoint, root, /*isPrivate=*/field.empty() || field == "-");
}

}  // namespace

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
    LineReader file(path);
    if (!file.opened()) {
        throw systemError("cannot open '", path, "': ");
    }
    std::string line;
    while (file.next(line)) {
        auto entry = parseLine(line);
        if (!entry) {
            report("mountinfo: invalid line: " + line);
        } else if (entry->mountPoint().starts_with(prefix)) {
            out.append(std::move(*entry));
        }
    }
    if (file.error() != 0) {
        throw systemError("error while reading '" + path + "': ", file.error());
    }
}

bool checkNamespaceMount(const std::string& userName, const MountTable& table,
                         const std::string& kind) {
    const std::string path = namespaceFile(userName, kind);
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
