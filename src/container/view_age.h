// The age of a container's view of the host, and whether the host has changed since it was built.
#pragma once

#include <chrono>
#include <initializer_list>
#include <optional>
#include <string>

/// Wall-clock time in nanoseconds since 1970. File times come from the kernel's coarse clock:
/// changes within a few milliseconds of each other may have the same time.
using Instant = std::chrono::sys_time<std::chrono::nanoseconds>;

/// The list of the host's packages. dpkg(1) rewrites it whenever it has changed a package.
inline constexpr const char* kPackageStatus = "/var/lib/dpkg/status";

/// When the namespace at the path was pinned; nothing when none is pinned there. It is the time of
/// the namespace's own inode, which the kernel creates when the namespace is pinned and keeps while
/// it is pinned.
std::optional<Instant> pinnedAt(const std::string& namespaceFile);

/// The time of the file's last change (st_ctim of inode(7)), which also shows a change that keeps
/// the modification time, such as a rename over the file. Nothing when it cannot be examined.
std::optional<Instant> changedAt(const std::string& path);

/// Whether one of the files has changed since. Do not pass the host's account files: every new
/// account changes them, while a view has only the lines of its own account.
bool haveChangedSince(Instant when, std::initializer_list<const char*> paths);

/// The time in the form "2026-11-21T22:17:08Z" (UTC, seconds).
std::string utcText(Instant when);
