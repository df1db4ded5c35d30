// The accounts that have a container: the registry file.
#pragma once

#include <functional>
#include <list>
#include <string>
#include <vector>

struct AccountEntry {
    std::string name;
    std::string net;  ///< the account's network as text, such as 100.64.0.4/30; empty when not set
};

inline constexpr const char* kAccountRegistry = "/etc/tarnwell/kiv.users";

/// Appends the registry's accounts in file order: those named `user` exactly, or all when `user` is
/// empty. An account on several lines comes several times. An unknown setting is reported on
/// standard error and left out; no line is rejected. Throws std::runtime_error when the registry
/// cannot be opened. Nothing is cached. 0, or the errno of a failed read, behind which accounts are
/// missing.
int readAccounts(std::list<AccountEntry>& result, const std::string& user,
                 const char* registry = kAccountRegistry);

/// A line of the registry.
struct RegistryLine {
    unsigned long number = 0;
    AccountEntry account;
    std::vector<std::string> unknownSettings;
};

/// Hands over each line with an account, in file order: for whoever reports on all of a registry.
/// Returns and throws as readAccounts.
int inspectRegistry(const std::function<void(const RegistryLine& line)>& visit,
                    const char* registry = kAccountRegistry);

/// The accounts that a command is for: `user`, or all when it is null (-a). A name that is given
/// but empty is an account that is not configured; it never means all (a panel's `stop "$unset"`).
/// Throws std::runtime_error "KIV not configured for requested user" when a name selects nothing,
/// and what readAccounts throws.
std::list<AccountEntry> selectAccounts(const char* user);
