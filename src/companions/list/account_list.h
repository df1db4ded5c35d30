// The data that kiv-list shows of each account.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "container/container_state.h"
#include "container/view_age.h"

/// Unknown figures and missing limits are absent.
struct ListedAccount {
    std::string account;
    std::optional<uid_t> uid;
    ContainerState state = ContainerState::Stopped;
    std::optional<std::string> network;  ///< as written in the registry
    std::optional<std::string> hostAddress;
    std::optional<std::string> address;
    std::optional<std::string> interface;
    std::optional<std::int64_t> processes;
    std::optional<std::int64_t> processesLimit;
    std::optional<std::int64_t> memory;       ///< bytes
    std::optional<std::int64_t> memoryLimit;  ///< bytes
    std::optional<double> cpu;                ///< seconds of processor time
    std::optional<double> cpuLimit;           ///< processors at a time
    std::optional<Instant> since;
    std::optional<bool> outdated;
    std::optional<std::vector<pid_t>> oldProcesses;  ///< set by addOldProcesses
};

/// The result of listAccounts.
struct AccountList {
    std::vector<ListedAccount> accounts;
    std::vector<std::string> failures;  ///< one line per account that cannot be listed
    int status = 0;                     ///< exit status: the highest of all accounts
};

/// The accounts `users`, in that order; when `users` is empty, every account of the registry once,
/// and the orphaned ones. Throws std::runtime_error when the registry or the runtime directory
/// cannot be read.
AccountList listAccounts(const std::vector<std::string>& users);
