// What a test's child process takes away from itself, to meet failures that a plain run does not:
// system calls, privileges, descriptors. For children only (inChild): nothing of it can be undone.
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

/// An account that owns nothing on any host.
inline constexpr uid_t kNobody = 65'534;

/// Ends the test's child when the test cannot be set up, so that it fails instead of passing.
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

/// Hands a test's tree, or a link, to the account that dropPrivileges changes to.
inline void giveToNobody(const std::string& tree) {
    if (::geteuid() != 0) {
        return;  // it belongs to the only user that there is
    }
    require(::lchown(tree.c_str(), kNobody, kNobody) == 0);
    if (!std::filesystem::is_directory(std::filesystem::symlink_status(tree))) {
        return;
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tree)) {
        require(::lchown(entry.path().c_str(), kNobody, kNobody) == 0);
    }
}

/// From now on root is nobody; everybody else stays who they are.
inline void dropPrivileges() {
    if (::geteuid() == 0) {
        require(::setgroups(0, nullptr) == 0);
        require(::setresgid(kNobody, kNobody, kNobody) == 0);
        require(::setresuid(kNobody, kNobody, kNobody) == 0);
        // else the process's own files in /proc would stay root's, PR_SET_DUMPABLE(2const)
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
