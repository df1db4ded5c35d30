#include "libkiv/capabilities.h"

#include <sys/capability.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "util/errors.h"

namespace {

using CapabilityState = std::unique_ptr<std::remove_pointer_t<cap_t>, int (*)(void*)>;

constexpr const char* kLettersOfNames = "abcdefghijklmnopqrstuvwxyz_";
constexpr std::array<cap_value_t, 2> kForChangeOfUser = {CAP_SETGID, CAP_SETUID};

/// cap_get_bound(3), which says EINVAL to the first number that the kernel does not know. Any other
/// failure must not look like the end of the set: all of it would stay.
bool isKnown(Capability capability) {
    if (cap_get_bound(capability) >= 0) {
        return true;
    }
    const int error = errno;
    if (error != EINVAL || capability == CAP_CHOWN) {
        throw systemError("cannot read the capability bounding set: ", error);
    }
    return false;
}

void dropFromBoundingSet(const CapabilitySet& kept) {
    for (Capability capability = CAP_CHOWN; isKnown(capability); ++capability) {
        if (kept.count(capability) == 0 && cap_drop_bound(capability) != 0) {
            throw systemError("cannot drop a capability from the bounding set: ");
        }
    }
}

/// tolower(3) goes by the administrator's language, and in Turkish no "i" comes of an "I".
char toLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

Capability parseCapability(const std::string& name) {
    std::string known = name;
    std::transform(known.begin(), known.end(), known.begin(), toLower);
    if (!known.starts_with("cap_")) {
        known.insert(0, "cap_");
    }
    cap_value_t value = -1;
    // cap_from_name(3) stops reading after the name ("cap_kill cap_chown" is the first alone), and
    // takes numbers too, which say nothing to who reads the file
    const bool isName = known.find_first_not_of(kLettersOfNames) == std::string::npos;
    if (!isName || cap_from_name(known.c_str(), &value) != 0) {
        throw std::runtime_error("unknown capability '" + name + "'");
    }
    return value;
}

void restrictCapabilities(const CapabilitySet& kept) {
    dropFromBoundingSet(kept);
    // all three sets empty: the ambient one keeps nothing that is not inheritable, capabilities(7)
    const CapabilityState state(cap_init(), cap_free);
    if (!state) {
        throw std::runtime_error("out of memory");
    }
    for (const cap_flag_t set : {CAP_PERMITTED, CAP_EFFECTIVE}) {
        cap_set_flag(state.get(), set, kForChangeOfUser.size(), kForChangeOfUser.data(), CAP_SET);
    }
    if (cap_set_proc(state.get()) != 0) {
        throw systemError("cannot reduce the capabilities: ");
    }
}
