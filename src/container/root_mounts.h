// The mounts inside a container's new root: home, tmp, terminals, proc, run and the configured
// ones.
#pragma once

#include <string>

#include "util/file_descriptor.h"

// Where the root is put together, in the set-up child's own mount namespace.
inline constexpr const char* kLayer = "/mnt/kiv";
inline constexpr const char* kTempRoot = "/mnt/temp-root";

/// `root` is the new root at kTempRoot, opened with O_PATH. Sources and targets that an account can
/// influence are opened once and mounted through their descriptors.

/// Binds the home directory and, over /tmp, its tmp directory. Reports what fails and goes on.
/// False when there is a home to bind, and it could not be bound.
[[nodiscard]] bool mountHome(const FileDescriptor& root, const std::string& home);

/// Private terminals, a proc of the account's own processes, the emptied paths of proc, and a small
/// /run. Throws std::runtime_error when there is no /run to be had; reports the rest.
void mountPrivateParts(const FileDescriptor& root);

/// Binds the configured paths. Reports what fails and goes on; a path that is missing on the host
/// only in debug mode.
void mountBinds(const FileDescriptor& root);
