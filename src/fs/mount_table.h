// The kernel's list of mounts, as far as the program asks about it. Reads only; mounts nothing.
#pragma once

#include <sys/types.h>

#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "util/file_descriptor.h"

/// One line of proc_pid_mountinfo(5). Texts stay as the kernel writes them: octal escapes such as
/// \040 are not decoded, so a mount point with a blank matches only a query in the same form.
class MountEntry {
public:
    MountEntry(std::string_view mountPoint, std::string_view root, bool isPrivate,
               std::string_view type = {}, std::string_view options = {})
        : mountPointField(mountPoint),
          rootField(root),
          privateFlag(isPrivate),
          typeField(type),
          optionsField(options) {}

    const std::string& mountPoint() const { return mountPointField; }
    /// The root of the mount within its file system; of a namespace file the kind, ":" and the
    /// inode number in brackets.
    const std::string& root() const { return rootField; }
    /// No propagation tag at all: a slave and an unbindable mount are not private either.
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

/// Mounts in file order. Of stacked mounts every query answers with the first one, the lowest.
class MountTable {
public:
    MountTable() = default;
    MountTable(MountTable&&) = default;
    MountTable& operator=(MountTable&&) = default;

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
    /// Sorted by mount point, made by the first query: a host with thousands of containers asks
    /// thousands of times.
    mutable std::vector<const MountEntry*> sorted;
};

inline constexpr const char* kMountInfo = "/proc/self/mountinfo";

/// Empties `out` and fills it with the mounts whose mount point begins with `prefix` (plain text:
/// "/run/kiv" keeps "/run/kivx" too). Reports and skips lines that are too short. Throws
/// std::runtime_error when the file cannot be opened or read; what was read then stays in `out`.
void readMountTable(MountTable& out, const std::string& prefix, const std::string& path);

/// The first mount in file order that is on `mountPoint`, without reading what follows it: of a
/// long table nearly all the time goes into the kernel's writing of it. Reports and throws like
/// readMountTable.
std::optional<MountEntry> findMount(const std::string& mountPoint, const std::string& path);

/// The mount table of this process, read again only after mounts were added or removed, which
/// poll(2) shows on the open file, proc_pid_mountinfo(5). The kernel does not show that a mount
/// became private. A forked process reads the table itself; not for use after setns(2).
class CurrentMounts {
public:
    /// `prefix` as for readMountTable.
    explicit CurrentMounts(std::string prefix) : mountPointPrefix(std::move(prefix)) {}

    /// Valid until the next call. Throws what readMountTable throws.
    const MountTable& table();

private:
    bool isCurrent() const;

    std::string mountPointPrefix;
    FileDescriptor watched;
    pid_t reader = 0;  ///< the process that has opened `watched`
    MountTable latest;
};

/// True when the account's namespace file of that kind is a bind mount of such a namespace. One
/// that is mounted from something else is reported, and counts as not bound.
bool checkNamespaceMount(const std::string& userName, const MountTable& table,
                         const std::string& kind);
