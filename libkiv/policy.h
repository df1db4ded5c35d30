// The part of the configuration that the library enforces: capabilities and system calls.
#pragma once

#include <optional>
#include <string>

#include "libkiv/capabilities.h"
#include "libkiv/system_call_rules.h"

/// A plain value; default-constructed it is the built-in default.
struct Policy {
    CapabilitySet keptCapabilities;
    std::optional<SystemCallRules> systemCalls;  ///< nothing: the built-in rules
};

inline constexpr const char* kPolicyFile = "/etc/tarnwell/kiv.conf";

/// The defaults, changed by the lists cap_add, cap_drop and seccomp of the file, kiv.conf(5); the
/// plain defaults when the file does not exist. Throws std::runtime_error, the text beginning with
/// the path, when the file cannot be read, or a line or an item of it cannot be understood.
Policy readPolicy(const std::string& path);
