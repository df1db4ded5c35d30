// The capabilities of a process that becomes an account's, see capabilities(7).
#pragma once

#include <set>
#include <string>

using Capability = int;  ///< its number, as in <linux/capability.h>
using CapabilitySet = std::set<Capability>;

/// The number of a capability's name, in any case, with or without "CAP_". Throws
/// std::runtime_error "unknown capability '…'".
Capability parseCapability(const std::string& name);

/// Empties the ambient and the inheritable set, drops all but `kept` from the bounding set, and
/// leaves CAP_SETUID and CAP_SETGID alone permitted and effective: what the change of user needs.
/// Throws std::runtime_error.
void restrictCapabilities(const CapabilitySet& kept);
