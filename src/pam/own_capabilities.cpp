#include "pam/own_capabilities.h"

#include <kiv.h>
#include <linux/capability.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "util/errors.h"
#include "util/scope_guard.h"

namespace {

constexpr unsigned kBitsOfWord = 32;
constexpr int kMostCapabilities = 64;

using CapabilityWords = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

bool readCapabilities(CapabilityWords& words) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    return ::syscall(SYS_capget, &header, words.data()) == 0;
}

bool writeCapabilities(const CapabilityWords& words) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    return ::syscall(SYS_capset, &header, words.data()) == 0;
}

struct Trial {
    ContainerHandle* handle;
    std::uint64_t boundingSet;
    std::optional<std::string> error;
};

/// True when the capability is in the bounding set. Throws on a failure other than EINVAL, which
/// means that the kernel does not know the capability.
bool isBounding(int capability) {
    const int result = ::prctl(PR_CAPBSET_READ, capability);
    if (result < 0 && errno != EINVAL) {
        throw systemError("cannot read the capability bounding set: ");
    }
    return result == 1;
}

void* tryCapabilities(void* argument) {
    auto& trial = *static_cast<Trial*>(argument);
    try {
        if (kiv_capabilities(trial.handle) == -1) {
            throw std::runtime_error(trial.handle->error);
        }
        for (int capability = 0; capability < kMostCapabilities; ++capability) {
            trial.boundingSet |= std::uint64_t{isBounding(capability)} << capability;
        }
    } catch (const std::exception& error) {
        trial.error = error.what();
    }
    return nullptr;
}

/// The bounding set that the library leaves. The library also empties the other sets, which could
/// not be restored. Capabilities belong to a thread, capabilities(7), so a short-lived thread calls
/// the library.
std::uint64_t boundingSetOf(ContainerHandle& handle) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    // the program's signals must be handled by its own thread
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const ScopeGuard restore([&before] { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); });
    Trial trial{&handle, 0, {}};
    pthread_t thread{};
    const int error = ::pthread_create(&thread, nullptr, tryCapabilities, &trial);
    if (error != 0) {
        throw systemError("cannot create a thread: ", error);
    }
    ::pthread_join(thread, nullptr);
    if (trial.error) {
        throw std::runtime_error(*trial.error);
    }
    return trial.boundingSet;
}

}  // namespace

void limitCapabilities(ContainerHandle& handle) {
    const std::uint64_t kept = boundingSetOf(handle);
    for (int capability = 0; capability < kMostCapabilities; ++capability) {
        const bool isKept = (kept >> capability & 1) != 0;
        // EINVAL: the kernel does not know this capability
        if (!isKept && ::prctl(PR_CAPBSET_DROP, capability) != 0 &&
            (errno != EINVAL || isBounding(capability))) {
            throw systemError("cannot drop a capability from the bounding set: ");
        }
    }
    CapabilityWords words{};
    if (!readCapabilities(words)) {
        throw systemError("cannot read the capabilities: ");
    }
    for (auto& word : words) {
        word.inheritable = 0;  // also empties the ambient set, capabilities(7)
    }
    if (!writeCapabilities(words)) {
        throw systemError("cannot reduce the capabilities: ");
    }
}

void giveUpChangeOfUser() {
    CapabilityWords words{};
    if (!readCapabilities(words)) {
        ::_exit(EXIT_FAILURE);
    }
    for (const unsigned capability : {unsigned{CAP_SETUID}, unsigned{CAP_SETGID}}) {
        if (::prctl(PR_CAPBSET_READ, capability) != 0 &&
            ::prctl(PR_CAPBSET_DROP, capability) != 0) {
            ::_exit(EXIT_FAILURE);
        }
        const std::uint32_t others = ~(std::uint32_t{1} << capability % kBitsOfWord);
        auto& word = words.at(capability / kBitsOfWord);
        word.effective &= others;
        word.permitted &= others;
        word.inheritable &= others;
    }
    if (!writeCapabilities(words)) {
        ::_exit(EXIT_FAILURE);
    }
}
