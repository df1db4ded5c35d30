// What the floor programs share that enter a container.
#pragma once

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/syscall.h>

#include <array>

#include "floor.h"

inline void enterCgroup(const char* cgroup) {
    const std::string name = std::string(cgroup) + "/cgroup.procs";
    const int file = ::open(name.c_str(), O_WRONLY | O_CLOEXEC);
    must(::write(file, "0", 1) == 1, "cgroup.procs");
    ::close(file);
}

inline void enterNamespaces(const char* user) {
    constexpr std::array<const char*, 3> kKinds = {"net", "ipc", "mnt"};
    std::array<int, kKinds.size()> files{};
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
        const std::string name = std::string("/run/kiv/") + user + "@" + kKinds[i];
        files[i] = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    }
    for (const int file : files) {
        must(::setns(file, 0) == 0, "setns");
    }
}

/// The filters that save_filter.cpp has written.
class Filters {
public:
    void read(const char* path) {
        const int file = ::open(path, O_RDONLY | O_CLOEXEC);
        size = ::read(file, instructions.data(), sizeof(instructions));
        must(size > 0, path);
    }

    void install() {
        sock_filter* next = instructions.data();
        const sock_filter* const end = next + static_cast<std::size_t>(size) / sizeof(sock_filter);
        while (next < end) {
            const sock_fprog program{static_cast<unsigned short>(next->k), next + 1};
            must(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0, "seccomp");
            next += 1 + program.len;
        }
    }

private:
    static constexpr std::size_t kMostInstructions = 2 * 4096;  // BPF_MAXINSNS of a filter
    std::array<sock_filter, kMostInstructions> instructions{};
    ssize_t size = 0;
};
