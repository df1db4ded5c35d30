// Gives running containers a view of the host's present files and configuration.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <list>
#include <string>
#include <unordered_set>
#include <vector>

#include "container/namespace_processes.h"

enum class Refresh {
    NewView,  ///< a new view for later entries; older views drop cached names that are not in use
    InPlace,  ///< only: existing views drop cached names that are not in use
};

struct RefreshResult {
    std::list<std::string> accounts;  ///< those that were refreshed
    std::string failures;             ///< with -a: one line per account that failed
};

/// One process for each mount namespace, other than the `known` ones, of processes in the network
/// namespace `network`. Namespaces are given by inode number.
std::vector<pid_t> processesWithOtherViews(const std::vector<ProcessPlace>& places,
                                           std::uint64_t network,
                                           std::unordered_set<std::uint64_t> known);

/// Refreshes the container of `user`, or of every configured account that is running when `user` is
/// null. Holds the account's lock, like start. The earlier view stays pinned until the new one is
/// complete. Throws std::runtime_error, with the container library's text when `user` is not
/// running or an earlier start was interrupted.
RefreshResult refreshContainers(const char* user, Refresh what);
