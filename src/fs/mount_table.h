// Reads the kernel's list of mounts. Mounts nothing.
#pragma once

#include <sys/types.h>

#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "util/file_descriptor.h"

/// One line of proc_pid_mountinfo(5), as the kernel writes it: octal escapes such as \040 are not
/// decoded, so a mount point with a blank matches only a query in the same form.
class MountEntry {
public:
    /// The texts are copied.
    MountEntry(std::string_view mountPoint, std::string_view root, bool isPrivate,
               std::string_view type = {}, std::string_view options = {})
        : mountPointField(mountPoint),
          rootField(root),
          privateFlag(isPrivate),
          typeField(type),
          optionsField(options) {}

    const std::string& mountPoint() const { return mountPointField; }
    /// The root of the mount within its file system; for a namespace file "KIND:[INODE]".
    const std::string& root() const { return rootField; }
    /// True without any propagation tag: slave and unbindable mounts do not count as private.
    bool isPrivate() const { return privateFlag; }
    /// The file system's type, such as "overlay".
    const std::string& type() const { return typeField; }
    /// The file system's own options, with commas between them.
    const std::string& options() const { return optionsField; }

private:
    std::string mountPointField;
    std::string rootField;
    bool privateFlag;
    std::string typeField;
    std::string optionsField;
};

/// Mounts in file order. Of stacked mounts every query returns the first one, the lowest.
class MountTable {
public:
    MountTable() = default;
    MountTable(MountTable&&) = default;
    MountTable& operator=(MountTable&&) = default;

    /// True when something is mounted on exactly this path.
    bool contains(const std::string& mountPoint) const;
    /// Throws std::out_of_range "No such mount point: " + mountPoint.
    const MountEntry& get(const std::string& mountPoint) const;

    void clear();
    void append(MountEntry entry);

    std::list<MountEntry>::const_iterator begin() const { return entries.begin(); }
    std::list<MountEntry>::const_iterator end() const { return entries.end(); }

private:
    const MountEntry* find(const std::string& mountPoint) const;

    std::list<MountEntry> entries;
    /// Sorted by mount point. Created by the first query, because a run over thousands of
    /// containers makes thousands of queries.
    mutable std::vector<const MountEntry*> sorted;
};

inline constexpr const char* kMountInfo = "/proc/self/mountinfo";

/// Empties `out` and fills it with the mounts whose mount point begins with `prefix` (plain text:
/// "/run/kiv" keeps "/run/kivx" too). Lines that are too short are reported and skipped. Throws
/// std::runtime_error when the file cannot be opened or read; what was read until then stays in
/// `out`.
void readMountTable(MountTable& out, const std::string& prefix, const std::string& path);

/// The first mount in file order on `mountPoint`. Does not read the rest of the file: for a long
/// table nearly all the time goes into the kernel's generating it. Reports and throws like
/// readMountTable.
std::optional<MountEntry> findMount(const std::string& mountPoint, const std::string& path);

/// The mount table of this process. It is read again only after mounts were added or removed, which
/// poll(2) reports on the open file, see proc_pid_mounts(5). The kernel does not report that a
/// mount became private. A forked process reads its own table. Do not use after setns(2).
class CurrentMounts {
public:
    /// `prefix` as for readMountTable.
    explicit CurrentMounts(std::string prefix) : mountPointPrefix(std::move(prefix)) {}

    /// The reference is valid until the next call. Throws what readMountTable throws.
    const MountTable& table();

private:
    bool isCurrent() const;

    std::string mountPointPrefix;
    FileDescriptor watched;
    pid_t reader = 0;  ///< the process that opened `watched`
    MountTable latest;
};

/// True when the account's namespace file of that kind is a bind mount of such a namespace. A mount
/// of anything else is reported on standard error and does not count.
bool checkNamespaceMount(const std::string& userName, const MountTable& table,
                         const std::string& kind);
