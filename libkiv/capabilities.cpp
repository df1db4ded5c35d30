#include "libkiv/capabilities.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "util/errors.h"

namespace {

/// In the order of their numbers in <linux/capability.h>, see capabilities(7).
constexpr std::string_view kNames[] = {"chown",
                                       "dac_override",
                                       "dac_read_search",
                                       "fowner",
                                       "fsetid",
                                       "kill",
                                       "setgid",
                                       "setuid",
                                       "setpcap",
                                       "linux_immutable",
                                       "net_bind_service",
                                       "net_broadcast",
                                       "net_admin",
                                       "net_raw",
                                       "ipc_lock",
                                       "ipc_owner",
                                       "sys_module",
                                       "sys_rawio",
                                       "sys_chroot",
                                       "sys_ptrace",
                                       "sys_pacct",
                                       "sys_admin",
                                       "sys_boot",
                                       "sys_nice",
                                       "sys_resource",
                                       "sys_time",
                                       "sys_tty_config",
                                       "mknod",
                                       "lease",
                                       "audit_write",
                                       "audit_control",
                                       "setfcap",
                                       "mac_override",
                                       "mac_admin",
                                       "syslog",
                                       "wake_alarm",
                                       "block_suspend",
                                       "audit_read",
                                       "perfmon",
                                       "bpf",
                                       "checkpoint_restore"};

constexpr std::string_view kPrefix = "cap_";
constexpr std::uint32_t kForChangeOfUser = 1U << CAP_SETGID | 1U << CAP_SETUID;

/// The kernel returns EINVAL for the first number that it does not know. Every kernel knows the
/// numbers up to CAP_SETFCAP: EINVAL for one of them must not be taken for the end of the set,
/// because the rest would then stay.
void dropFromBoundingSet(const CapabilitySet& kept) {
    if (::prctl(PR_CAPBSET_READ, CAP_CHOWN, 0, 0, 0) < 0) {
        throw systemError("cannot read the capability bounding set: ");
    }
    for (Capability capability = CAP_CHOWN;; ++capability) {
        if (kept.count(capability) == 0 && ::prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) != 0) {
            const int error = errno;
            if (error == EINVAL && capability > CAP_SETFCAP) {
                return;
            }
            throw systemError("cannot drop a capability from the bounding set: ", error);
        }
    }
}

/// Not tolower(3), which depends on the locale: in Turkish "I" does not become "i".
char toLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

Capability parseCapability(const std::string& name) {
    std::string known = name;
    std::transform(known.begin(), known.end(), known.begin(), toLower);
    if (known.starts_with(kPrefix)) {
        known.erase(0, kPrefix.size());
    }
    const auto* const found = std::find(std::begin(kNames), std::end(kNames), known);
    if (found == std::end(kNames)) {
        throw std::runtime_error("unknown capability '" + name + "'");
    }
    return static_cast<Capability>(std::distance(std::begin(kNames), found));
}

void restrictCapabilities(const CapabilitySet& kept) {
    dropFromBoundingSet(kept);
    // Emptying the inheritable set also empties the ambient set, capabilities(7).
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    sets[0].permitted = sets[0].effective = kForChangeOfUser;
    if (::syscall(SYS_capset, &header, sets.data()) != 0) {
        throw systemError("cannot reduce the capabilities: ");
    }
}
