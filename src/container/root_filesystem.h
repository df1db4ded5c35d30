// Builds the root file system that an account sees, inside the container's new mount namespace.
#pragma once

#include <optional>
#include <string>

#include "fs/mount_table.h"
#include "util/util.h"

/// Whether the caller knows that namespace files are pinned below the runtime directory. They make
/// it busy.
enum class Pinned { Unknown, Some };

/// Runs in the set-up child, which is alone in its mount namespace: cuts it off from the host's
/// mounts, stacks the generated layer over the host's root, mounts the private parts and pivots
/// into it. `account` is the password entry, if there is one. Parts that fail and that a usable
/// container can lack are reported and left out. Throws std::runtime_error for the other parts; "/"
/// is then covered where that is possible, because the namespace is already pinned and must not
/// show the host.
void buildRootFilesystem(const std::string& userName, const std::optional<PasswordEntry>& account,
                         Pinned pinned);

/// Whether `table`, the mounts of a process in the namespace, has a root as buildRootFilesystem
/// builds it, and nothing else at "/": neither the host's root nor a cover.
bool showsBuiltRoot(const MountTable& table);
