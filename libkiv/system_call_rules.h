// The rules for an account's system calls, and their installation in the kernel.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

/// The answer to a system call.
enum class Answer {
    Deny,                  ///< EPERM
    Kill,                  ///< the process ends with SIGSYS
    Missing,               ///< ENOSYS: the C library falls back to an older call
    DenyNewUserNamespace,  ///< EPERM when the flags in argument 0 ask for a user namespace
    DenyHarmfulRequests,   ///< EPERM for ioctl(2) requests that reach what a container must not
    DenyOddPersonality,    ///< EPERM for all but the harmless values of personality(2)
    DenyVsock,             ///< EPERM for socket(2) of the family AF_VSOCK
};

/// The rules for one account's processes. A plain value.
struct SystemCallRules {
    std::map<std::string, Answer> calls;  ///< by name; a call that is not here is allowed
    std::set<std::string> deniedTables;   ///< by name: i386, x32, arm
    bool noNewPrivileges = false;         ///< PR_SET_NO_NEW_PRIVS(2const) is set with the filter

    bool operator==(const SystemCallRules& other) const = default;
};

/// The built-in rules; kiv.conf(5) explains how to change them.
SystemCallRules defaultSystemCallRules();

/// Applies one item of the section seccomp in kiv.conf(5) to the rules: "deny NAME…", "allow
/// NAME…", "kill NAME…", or one bare name, which denies; "deny-table NAME…", "allow-table NAME…";
/// "no_new_privs". Throws std::runtime_error with what cannot be understood, and then changes
/// nothing.
void applySystemCallItem(SystemCallRules& rules, const std::string& item);

/// Installs the rules for this process and its descendants, for every table of system calls that
/// the machine has, seccomp(2); without rules the built-in ones. They cannot be removed again.
/// Needs CAP_SYS_ADMIN. Throws std::runtime_error.
void installSystemCallFilter(const std::optional<SystemCallRules>& rules);
