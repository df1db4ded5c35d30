// Restrictions that a test's child puts on itself, to provoke failures that a plain run does not
// have: on system calls, privileges and descriptors. Only for children (inChild), because none can
// be undone.
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

/// A user ID that owns no file on any host.
inline constexpr uid_t kNobody = 65'534;

/// Ends the test's child when the set-up fails, so that the test fails instead of passing.
inline void require(bool done) {
    if (!done) {
        std::abort();
    }
}

/// Makes the system call of that number fail with `error`; with 0 it succeeds and does nothing.
inline void denySystemCall(long number, unsigned error) {
    std::array<sock_filter, 4> rules = {{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    sock_fprog program = {static_cast<unsigned short>(rules.size()), rules.data()};
    require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
    require(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0);
}

/// Gives a test's tree, or a link, to the user that dropPrivileges changes to.
inline void giveToNobody(const std::string& tree) {
    if (::geteuid() != 0) {
        return;  // it already belongs to the only user
    }
    require(::lchown(tree.c_str(), kNobody, kNobody) == 0);
    if (!std::filesystem::is_directory(std::filesystem::symlink_status(tree))) {
        return;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tree)) {
        require(::lchown(entry.path().c_str(), kNobody, kNobody) == 0);
    }
}

/// Changes root to the user nobody; other users stay unchanged.
inline void dropPrivileges() {
    if (::geteuid() == 0) {
        require(::setgroups(0, nullptr) == 0);
        require(::setresgid(kNobody, kNobody, kNobody) == 0);
        require(::setresuid(kNobody, kNobody, kNobody) == 0);
        // else root would still own the process's files in /proc, PR_SET_DUMPABLE(2const)
        require(::prctl(PR_SET_DUMPABLE, 1, 0, 0, 0) == 0);
    }
}

/// From now on exactly `count` more descriptors can be opened.
inline void leaveDescriptors(std::size_t count) {
    std::vector<int> probes;
    for (std::size_t i = 0; i <= count; ++i) {
        probes.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        require(probes.back() >= 0);
    }
    rlimit limit{};
    require(::getrlimit(RLIMIT_NOFILE, &limit) == 0);
    limit.rlim_cur = static_cast<rlim_t>(probes.back());
    for (const int probe : probes) {
        ::close(probe);
    }
    require(::setrlimit(RLIMIT_NOFILE, &limit) == 0);
}
