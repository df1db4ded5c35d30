// How old a container's view of the host is, and what has changed since it was built.
#pragma once

#include <chrono>
#include <initializer_list>
#include <optional>
#include <string>

/// Wall-clock time. It comes from the kernel's coarse clock: changes within a few milliseconds of
/// each other may have the same one.
using Instant = std::chrono::sys_time<std::chrono::nanoseconds>;

/// The packages of the host: dpkg(1) rewrites the file whenever it has changed one.
inline constexpr const char* kPackageStatus = "/var/lib/dpkg/status";

/// When the namespace that is pinned at the path got its file; nothing when none is pinned there.
/// The kernel makes that file when the namespace is pinned, and keeps it while it is.
std::optional<Instant> pinnedAt(const std::string& namespaceFile);

/// The last change of the file, also one that has left its modification time as it was, such as a
/// rename over it; nothing when it cannot be examined.
std::optional<Instant> changedAt(const std::string& path);

/// Whether one of the files has changed since. The host's account files do not belong to them:
/// every new account changes them, and of all their lines a view keeps its own account's.
bool haveChangedSince(Instant when, std::initializer_list<const char*> paths);

/// As "2026-11-21T22:17:08Z".
std::string utcText(Instant when);
