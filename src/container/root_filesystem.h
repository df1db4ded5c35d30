// Builds what an account sees as its root, inside the container's new mount namespace.
#pragma once

#include <optional>
#include <string>

#include "fs/mount_table.h"
#include "util/util.h"

/// Whether namespace files are pinned below the runtime directory, as the caller knows it. They
/// make it busy.
enum class Pinned { Unknown, Some };

/// Runs in the set-up child, which is alone in its mount namespace: cuts it off from the host's
/// mounts, stacks the generated layer over the host's root, mounts the private parts and pivots
/// into it. `account` is the password entry, if there is one. Missing pieces without which the
/// container is still usable are reported and left out. Throws std::runtime_error for the others;
/// "/" is then covered where that is possible, because the namespace is pinned already and must not
/// be left with a view of the host.
void buildRootFilesystem(const std::string& userName, const std::optional<PasswordEntry>& account,
                         Pinned pinned);

/// Whether `table`, of a process in the namespace, shows a root as buildRootFilesystem makes it,
/// and nothing else at "/": neither the host's root nor a cover.
bool showsBuiltRoot(const MountTable& table);
