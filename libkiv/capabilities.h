// Limits the capabilities of a process that will run as an account, see capabilities(7).
#pragma once

#include <set>
#include <string>

using Capability = int;  ///< the number in <linux/capability.h>
using CapabilitySet = std::set<Capability>;

/// The capability of that name, in upper or lower case, with or without "CAP_". Throws
/// std::runtime_error "unknown capability '…'".
Capability parseCapability(const std::string& name);

/// Empties the ambient and the inheritable set, and drops all capabilities but `kept` from the
/// bounding set. Only CAP_SETUID and CAP_SETGID stay permitted and effective, because the change of
/// user needs them. Throws std::runtime_error.
void restrictCapabilities(const CapabilitySet& kept);
