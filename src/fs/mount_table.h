// The kernel's list of mounts, as far as the program asks about it. Reads only; mounts nothing.
#pragma once

#include <list>
#include <string>
#include <string_view>

/// One line of proc_pid_mountinfo(5). Texts stay as the kernel writes them: octal escapes such as
/// \040 are not decoded, so a mount point with a blank matches only a query in the same form.
class MountEntry {
public:
    MountEntry(std::string_view mountPoint, std::string_view root, bool isPrivate)
        : mountPointField(mountPoint), rootField(root), privateFlag(isPrivate) {}

    const std::string& mountPoint() const { return mountPointField; }
    /// The root of the mount within its file system; of a namespace file the kind, ":" and the
    /// inode number in brackets.
    const std::string& root() const { return rootField; }
    /// No propagation tag at all: a slave and an unbindable mount are not private either.
    bool isPrivate() const { return privateFlag; }

private:
    std::string mountPointField;
    std::string rootField;
    bool privateFlag;
};

/// Mounts in file order. Of stacked mounts every query answers with the first one, the lowest.
class MountTable {
public:
    bool contains(const std::string& mountPoint) const;
    /// Throws std::out_of_range "No such mount point: " + mountPoint.
    const MountEntry& get(const std::string& mountPoint) const;

    void clear() { entries.clear(); }
    void append(MountEntry entry);

    std::list<MountEntry>::const_iterator begin() const { return entries.begin(); }
    std::list<MountEntry>::const_iterator end() const { return entries.end(); }

private:
    const MountEntry* find(const std::string& mountPoint) const;

    std::list<MountEntry> entries;
};

inline constexpr const char* kMountInfo = "/proc/self/mountinfo";

/// Empties `out` and fills it with the mounts whose mount point begins with `prefix` (plain text:
/// "/run/kiv" keeps "/run/kivx" too). Reports and skips lines that are too short. Throws
/// std::runtime_error when the file cannot be opened or read; what was read then stays in `out`.
void readMountTable(MountTable& out, const std::string& prefix, const std::string& path);

/// True when the account's namespace file of that kind is a bind mount of such a namespace. One
/// that is mounted from something else is reported, and counts as not bound.
bool checkNamespaceMount(const std::string& userName, const MountTable& table,
                         const std::string& kind);
