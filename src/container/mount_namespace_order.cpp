#include "container/mount_namespace_order.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>

#include "util/file_descriptor.h"
#include "util/scope_guard.h"

namespace {

// NS_GET_MNTNS_ID of ioctl_ns(2), which headers before Linux 6.8 lack
constexpr unsigned long kGetNumber = _IOR(0xb7, 0x5, std::uint64_t);

/// 0 when the kernel does not tell.
std::uint64_t numberOf(int mountNamespace) {
    std::uint64_t number = 0;
    return ::ioctl(mountNamespace, kGetNumber, &number) == 0 ? number : 0;
}

bool comesAfter(std::uint64_t earlier) {
    const FileDescriptor own(::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC));
    const std::uint64_t number = numberOf(own.get());
    return number == 0 || number > earlier;
}

}  // namespace

void makeMountNamespaceLater(int pinning) {
    const std::uint64_t earlier = numberOf(pinning);
    cpu_set_t before;
    if (earlier == 0 || comesAfter(earlier) || ::sched_getaffinity(0, sizeof(before), &before)) {
        return;
    }
    const ScopeGuard putBack([&before] { ::sched_setaffinity(0, sizeof(before), &before); });
    // also those that the caller's affinity leaves out: the one that helps is where `pinning` was
    // made
    const auto processors = static_cast<int>(::sysconf(_SC_NPROCESSORS_CONF));
    for (int processor = 0; processor < processors && processor < CPU_SETSIZE; ++processor) {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        if (::sched_setaffinity(0, sizeof(one), &one) != 0) {
            continue;  // not for this process, or not switched on
        }
        if (::unshare(CLONE_NEWNS) != 0 || comesAfter(earlier)) {
            return;
        }
    }
}
