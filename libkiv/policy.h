// What the host's administrator allows in containers, as far as the library enforces it.
#pragma once

#include <string>

#include "libkiv/capabilities.h"
#include "libkiv/system_call_rules.h"

/// Made without a file it is the built-in default.
struct Policy {
    CapabilitySet keptCapabilities;
    SystemCallRules systemCalls = defaultSystemCallRules();
};

inline constexpr const char* kPolicyFile = "/etc/tarnwell/kiv.conf";

/// The defaults as changed by the file's lists cap_add, cap_drop and seccomp; the defaults alone
/// when there is no such file. Throws std::runtime_error, the text beginning with the path, when it
/// cannot be read or a line or an item of it cannot be understood.
Policy readPolicy(const std::string& path);
