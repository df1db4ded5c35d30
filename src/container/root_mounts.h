// The mounts inside a container's new root: home, /tmp, terminals, /proc, /run and the configured
// ones.
#pragma once

#include <string>

#include "util/file_descriptor.h"

// Where the root is assembled, in the set-up child's own mount namespace.
inline constexpr const char* kLayer = "/mnt/kiv";
inline constexpr const char* kTempRoot = "/mnt/temp-root";

// In the functions below `root` is the new root at kTempRoot, opened with O_PATH. Sources and
// targets that an account can influence are opened once and mounted through their descriptors.

/// Bind-mounts the home directory and, over /tmp, its tmp directory. A failure is reported and the
/// next step still runs. False when the home could not be mounted.
[[nodiscard]] bool mountHome(const FileDescriptor& root, const std::string& home);

/// Mounts a private devpts (the account's terminals), a /proc that shows only the account's own
/// processes, covers for the emptied paths of /proc, and a small /run. Throws std::runtime_error
/// when /run cannot be made; other failures are only reported.
void mountPrivateParts(const FileDescriptor& root);

/// Bind-mounts the configured paths. A failure is reported and the next path is tried; a path that
/// is missing on the host is reported only in debug mode.
void mountBinds(const FileDescriptor& root);
