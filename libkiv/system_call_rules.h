// Which system calls an account's processes may not make, and how the kernel is told.
#pragma once

#include <map>
#include <string>

/// What a call of one name is answered with.
enum class Answer {
    Deny,                  ///< EPERM
    Kill,                  ///< the process ends with SIGSYS
    Missing,               ///< ENOSYS: the C library falls back to an older call
    DenyNewUserNamespace,  ///< EPERM when the flags in argument 0 ask for a user namespace
    DenyTerminalInput,     ///< EPERM for ioctl(2) requests that push bytes into a terminal
    DenyOddPersonality,    ///< EPERM for all but the harmless values of personality(2)
};

/// By the call's name. What is not here is allowed.
using SystemCallRules = std::map<std::string, Answer>;

SystemCallRules defaultSystemCallRules();

/// Changes the rules by an item of the configuration: "deny NAME…", "allow NAME…", "kill NAME…", or
/// one bare name, which denies. Throws std::runtime_error with what cannot be understood.
void applySystemCallItem(SystemCallRules& rules, const std::string& item);

/// Installs the rules for this process, on every architecture whose programs the machine runs.
/// no_new_privs stays unset: a program in the container may still gain the group of a mail or cron
/// helper. Needs CAP_SYS_ADMIN. Throws std::runtime_error.
void installSystemCallFilter(const SystemCallRules& rules);
