// The registry as kiv-list and kiv-check read it: all of it, or not at all.
#pragma once

#include <functional>
#include <string>

#include "config/account_registry.h"
#include "util/errors.h"

/// Hands over each line with an account. Throws std::runtime_error when the registry cannot be
/// opened, or read to its end: what is missing must not look as if it were not listed.
inline void readWholeRegistry(const std::string& registry,
                              const std::function<void(const RegistryLine& line)>& visit) {
    const int error = inspectRegistry(visit, registry.c_str());
    if (error != 0) {
        throw systemError("cannot read " + registry + ": ", error);
    }
}
