#include "fs/mount_table.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <stdexcept>
#include <string_view>

#include "util/errors.h"
#include "util/line_reader.h"
#include "util/runtime_directory.h"
#include "util/word_reader.h"

namespace {

// field numbers of proc_pid_mountinfo(5), which count from one
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
    bool isPrivate = true;
    while (!field.empty() && field != "-") {
        isPrivate = isPrivate && !isPropagationTag(field);
        field = fields.next();
    }
    const std::string_view type = fields.next();
    fields.next();  // the mount source
    return MountEntry(mountPoint, root, isPrivate, type, fields.next());
}

/// Calls `goOnAfter` with each mount in file order, until it returns false. Reads small blocks,
/// because nearly all the time goes into the kernel's writing the lines.
void readMounts(const std::string& path, const std::function<bool(MountEntry&&)>& goOnAfter) {
    constexpr std::size_t kFewLines = 1024;
    LineReader file(path, kFewLines);
    if (!file.opened()) {
        throw systemError("cannot open '", path, "': ");
    }
    std::string line;
    while (file.next(line)) {
        auto entry = parseLine(line);
        if (!entry) {
            report("mountinfo: invalid line: " + line);
        } else if (!goOnAfter(std::move(*entry))) {
            return;
        }
    }
    if (file.error() != 0) {
        throw systemError("error while reading '" + path + "': ", file.error());
    }
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

void MountTable::clear() {
    entries.clear();
    sorted.clear();
}

const MountEntry* MountTable::find(const std::string& mountPoint) const {
    if (sorted.size() != entries.size()) {
        sorted.clear();
        for (const MountEntry& entry : entries) {
            sorted.push_back(&entry);
        }
        // stable, so that find returns the lowest of stacked mounts
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const MountEntry* one, const MountEntry* other) {
                             return one->mountPoint() < other->mountPoint();
                         });
    }
    const auto found = std::lower_bound(sorted.begin(), sorted.end(), mountPoint,
                                        [](const MountEntry* entry, const std::string& wanted) {
                                            return entry->mountPoint() < wanted;
                                        });
    return found == sorted.end() || (*found)->mountPoint() != mountPoint ? nullptr : *found;
}

void readMountTable(MountTable& out, const std::string& prefix, const std::string& path) {
    out.clear();
    readMounts(path, [&](MountEntry&& entry) {
        if (entry.mountPoint().starts_with(prefix)) {
            out.append(std::move(entry));
        }
        return true;
    });
}

std::optional<MountEntry> findMount(const std::string& mountPoint, const std::string& path) {
    std::optional<MountEntry> found;
    readMounts(path, [&](MountEntry&& entry) {
        if (entry.mountPoint() == mountPoint) {
            found = std::move(entry);
        }
        return !found;
    });
    return found;
}

const MountTable& CurrentMounts::table() {
    if (isCurrent()) {
        return latest;
    }
    // opened before the table is read, so that a change during the reading shows afterwards
    FileDescriptor opened(::open(kMountInfo, O_RDONLY | O_CLOEXEC));
    watched.reset();
    readMountTable(latest, mountPointPrefix, kMountInfo);
    watched = std::move(opened);
    reader = ::getpid();
    return latest;
}

bool CurrentMounts::isCurrent() const {
    if (!watched.valid() || reader != ::getpid()) {
        return false;
    }
    pollfd file{watched.get(), POLLPRI, 0};
    return ::poll(&file, 1, 0) == 0;
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
