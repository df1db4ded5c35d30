// Gives running containers a view of what the host and its configuration are today.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <list>
#include <string>
#include <unordered_set>
#include <vector>

#include "container/namespace_processes.h"

enum class Refresh {
    NewView,  ///< for whoever enters from now on; older views drop the names that nothing holds
    InPlace,  ///< the views that there are drop the names that nothing holds, and that is all
};

struct RefreshResult {
    std::list<std::string> accounts;  ///< which were refreshed
    std::string failures;             ///< with -a: a line for each account that was not
};

/// One process for each mount namespace beside the `known` ones that processes in the network
/// namespace `network` are in; both are inodes.
std::vector<pid_t> processesWithOtherViews(const std::vector<ProcessPlace>& places,
                                           std::uint64_t network,
                                           std::unordered_set<std::uint64_t> known);

/// Refreshes the container of `user`, or with null of every configured account that is running. The
/// account's lock is held for it, as by start, and the earlier view stays pinned until the new one
/// is complete. Throws std::runtime_error when `user` is not running, or an earlier start of it was
/// interrupted: the text is the container library's.
RefreshResult refreshContainers(const char* user, Refresh what);
