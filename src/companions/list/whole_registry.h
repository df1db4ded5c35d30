// The registry for kiv-list and kiv-check: either all of it is read, or the program fails.
#pragma once

#include <functional>
#include <string>

#include "config/account_registry.h"
#include "util/errors.h"

/// Calls `visit` for each line with an account. Throws std::runtime_error when the registry cannot
/// be opened or not read to its end: an account that was not read must not look as if it were not
/// in the registry.
inline void readWholeRegistry(const std::string& registry,
                              const std::function<void(const RegistryLine& line)>& visit) {
    const int error = inspectRegistry(visit, registry.c_str());
    if (error != 0) {
        throw systemError("cannot read " + registry + ": ", error);
    }
}
