// The accounts of a host and their pinned namespaces, read once for all checks.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "container/container_state.h"
#include "util/util.h"

/// One account, and what of its container is pinned.
struct HostAccount {
    std::string name;
    std::optional<PasswordEntry> user;
    bool isRegistered = false;
    std::string network;  ///< as in the registry; empty without one
    ContainerState state = ContainerState::Stopped;
    std::string interface;
    std::uint64_t networkNamespace = 0;  ///< inode number; 0 when none is pinned
    std::uint64_t mountNamespace = 0;

    bool hasContainer() const { return networkNamespace != 0 || mountNamespace != 0; }
};

/// All accounts. The maps point into `all` and are valid as long as this object; it moves, but does
/// not copy.
struct HostAccounts {
    std::vector<HostAccount> all;  ///< those of the registry, then orphaned ones
    std::map<uid_t, const HostAccount*> byUser;
    std::map<std::uint64_t, const HostAccount*> byNetworkNamespace;

    HostAccounts() = default;
    HostAccounts(const HostAccounts&) = delete;
    HostAccounts& operator=(const HostAccounts&) = delete;
    HostAccounts(HostAccounts&&) = default;
    HostAccounts& operator=(HostAccounts&&) = default;
};

/// Throws std::runtime_error when the registry, the runtime directory or the password database
/// cannot be read. Waits up to two seconds for each start or stop that is under way.
HostAccounts readHostAccounts(const std::string& registry);
