#include "libkiv/policy.h"

#include <sys/stat.h>

#include <cerrno>
#include <stdexcept>

#include "config/configuration.h"

namespace {

/// False for a dangling link: the administrator wants a file to be read there.
bool isMissing(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

}  // namespace

Policy readPolicy(const std::string& path) {
    Policy policy;
    if (isMissing(path)) {
        return policy;
    }
    CapabilitySet dropped;
    const auto take = [&](Configuration::Section section, const std::string& item) {
        if (item.empty()) {
            return;  // a line of white space
        }
        if (section == &Configuration::cap_add) {
            policy.keptCapabilities.insert(parseCapability(item));
        } else if (section == &Configuration::cap_drop) {
            dropped.insert(parseCapability(item));
        } else if (section == &Configuration::seccomp) {
            if (!policy.systemCalls) {
                policy.systemCalls = defaultSystemCallRules();
            }
            applySystemCallItem(*policy.systemCalls, item);
        }
    };
    try {
        Configuration::read(path, take);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
    for (const Capability capability : dropped) {
        policy.keptCapabilities.erase(capability);
    }
    return policy;
}
