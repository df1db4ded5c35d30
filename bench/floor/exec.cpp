// The minimum of an exec: joins a cgroup and three namespaces, installs prepared filters, changes
// the user and runs the shell. It looks up, checks and locks nothing, and drops no capability from
// the bounding set, unless it is built with EMPTIES_BOUNDING_SET.
//   exec CGROUP USER FILTERS UID GID HOME SHELL
#include <grp.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <array>

#include "floor.h"

namespace {

constexpr std::array<const char*, 3> kKinds = {"net", "ipc", "mnt"};
constexpr std::size_t kMostInstructions = 2 * 4096;  // BPF_MAXINSNS of a filter

void enterCgroup(const std::string& cgroup) {
    const int file = ::open((cgroup + "/cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC);
    must(::write(file, "0", 1) == 1, "cgroup.procs");
    ::close(file);
}

void enterNamespaces(const std::string& prefix) {
    std::array<int, kKinds.size()> files{};
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
        files[i] = ::open((prefix + kKinds[i]).c_str(), O_RDONLY | O_CLOEXEC);
    }
    for (const int file : files) {
        must(::setns(file, 0) == 0, "setns");
    }
}

/// Reads the filters that save_filter.cpp has written.
void installFilters(sock_filter* next, const sock_filter* end) {
    while (next < end) {
        const sock_fprog program{static_cast<unsigned short>(next->k), next + 1};
        must(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0, "seccomp");
        next += 1 + program.len;
    }
}

/// Until the kernel knows no further capability.
[[maybe_unused]] void emptyBoundingSet() {
    for (unsigned long capability = 0; ::prctl(PR_CAPBSET_DROP, capability) == 0;) {
        ++capability;
    }
}

}  // namespace

int main(int argc, char** argv) {
    must(argc == 8, "usage: exec CGROUP USER FILTERS UID GID HOME SHELL");
    static std::array<sock_filter, kMostInstructions> filters;
    const int file = ::open(argv[3], O_RDONLY | O_CLOEXEC);
    const ssize_t size = ::read(file, filters.data(), sizeof(filters));
    must(size > 0, argv[3]);
    enterCgroup(argv[1]);
    enterNamespaces(std::string("/run/kiv/") + argv[2] + "@");
    installFilters(filters.data(),
                   filters.data() + static_cast<std::size_t>(size) / sizeof(sock_filter));
#ifdef EMPTIES_BOUNDING_SET
    emptyBoundingSet();
#endif
    const auto uid = static_cast<uid_t>(std::strtoul(argv[4], nullptr, 10));
    const auto gid = static_cast<gid_t>(std::strtoul(argv[5], nullptr, 10));
    must(::setgroups(1, &gid) == 0 && ::setresgid(gid, gid, gid) == 0 &&
             ::setresuid(uid, uid, uid) == 0,
         "setuid");
    must(::chdir(argv[6]) == 0, argv[6]);
    ::execv(argv[7], argv + 7);
    must(false, argv[7]);
}
