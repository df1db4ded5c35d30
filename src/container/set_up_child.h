// The short-lived process that owns a container's new namespaces while they are set up.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "container/network.h"
#include "container/root_filesystem.h"
#include "util/interrupted_run.h"
#include "util/util.h"

/// The umask during set-up, so that the modes of created files do not depend on the caller's umask.
inline constexpr mode_t kSetUpUmask = 022;

/// What the child is to do, decided before the fork.
struct SetUpPlan {
    std::string userName;
    ContainerLink link;
    std::optional<PasswordEntry> account;  ///< none when the account has no password entry
    int flags = 0;                         ///< the new namespaces, as for unshare(2)
    Pinned pinned = Pinned::Unknown;
};

/// The child after its release: sets up its end of the network, builds the view, clears the mark
/// when the view is complete, and ends the process: status 0, or 71 (EX_OSERR of sysexits.h(3head))
/// after an error or a failed network command. Errors are printed here in the parent's format and
/// never propagate: the parent's stack frames are only copies in this process.
[[noreturn]] void runSetUpChild(const SetUpPlan& plan, const RunMark& mark) noexcept;
