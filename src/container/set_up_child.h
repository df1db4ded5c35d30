// The short-lived process that owns a container's new namespaces while they are set up.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "container/network.h"
#include "container/root_filesystem.h"
#include "util/interrupted_run.h"
#include "util/util.h"

/// Of whoever sets up: modes of what is created must not depend on the caller's.
inline constexpr mode_t kSetUpUmask = 022;

/// What the child is to do, settled before the fork.
struct SetUpPlan {
    std::string userName;
    ContainerLink link;
    std::optional<PasswordEntry> account;  ///< none when the account has no password entry
    int flags = 0;                         ///< the new namespaces, as for unshare(2)
    Pinned pinned = Pinned::Unknown;
};

/// The child after its release: wires its end of the network, builds the view, clears the mark when
/// the view is complete, and ends the process: with 0, with 71 after a failed network command or an
/// error. An error is printed here, as the program prints those of the parent, and travels no
/// further: the parent's frames are only copies in this process.
[[noreturn]] void runSetUpChild(const SetUpPlan& plan, const RunMark& mark) noexcept;
