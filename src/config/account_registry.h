// The accounts that have a container: the registry file.
#pragma once

#include <functional>
#include <list>
#include <string>
#include <vector>

/// One account of the registry, kiv.users(5).
struct AccountEntry {
    std::string name;
    std::string net;  ///< the account's network as text, such as 100.64.0.4/30; empty when not set
};

inline constexpr const char* kAccountRegistry = "/etc/tarnwell/kiv.users";

/// Appends the registry's accounts in file order: those whose name is exactly `user`, or all when
/// `user` is empty. An account on several lines is appended several times. An unknown setting is
/// reported on standard error and ignored; no line is rejected. Reads the file on every call.
/// Returns 0, or the errno of a failed read, after which accounts are missing. Throws
/// std::runtime_error when the registry cannot be opened.
int readAccounts(std::list<AccountEntry>& result, const std::string& user,
                 const char* registry = kAccountRegistry);

/// A line of the registry.
struct RegistryLine {
    unsigned long number = 0;
    AccountEntry account;
    std::vector<std::string> unknownSettings;
};

/// Calls `visit` for each line with an account, in file order: for a program that reports on the
/// whole registry. Returns and throws like readAccounts.
int inspectRegistry(const std::function<void(const RegistryLine& line)>& visit,
                    const char* registry = kAccountRegistry);

/// The accounts that a command is for: `user`, or all when it is null (-a). An empty name is an
/// account that is not configured; it never means all accounts (a panel may run `stop "$unset"`).
/// Throws std::runtime_error "KIV not configured for requested user" when the name selects no
/// account, and what readAccounts throws.
std::list<AccountEntry> selectAccounts(const char* user);
