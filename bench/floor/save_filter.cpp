// Writes the system-call filters of a running process to a file, so that floor/exec.cpp installs
// the same filters as kivctl. The oldest is first. Before each is an instruction with its length as
// the operand. See ptrace(2), PTRACE_SECCOMP_GET_FILTER.
//   save_filter PID FILE
#include <linux/filter.h>
#include <sys/ptrace.h>

#include <cerrno>
#include <vector>

#include "floor.h"

namespace {

using Program = std::vector<sock_filter>;

/// The filter with that index, 0 for the latest; empty after the oldest.
Program readFilter(pid_t process, long index) {
    const long length = ::ptrace(PTRACE_SECCOMP_GET_FILTER, process, index, nullptr);
    if (length < 0 && errno == ENOENT) {
        return {};
    }
    must(length > 0, "PTRACE_SECCOMP_GET_FILTER");
    Program program(static_cast<std::size_t>(length));
    must(::ptrace(PTRACE_SECCOMP_GET_FILTER, process, index, program.data()) == length,
         "PTRACE_SECCOMP_GET_FILTER");
    return program;
}

}  // namespace

int main(int argc, char** argv) {
    must(argc == 3, "usage: save_filter PID FILE");
    const auto process = static_cast<pid_t>(std::strtol(argv[1], nullptr, 10));
    int status = 0;
    must(::ptrace(PTRACE_ATTACH, process, nullptr, nullptr) == 0, "PTRACE_ATTACH");
    must(::waitpid(process, &status, 0) == process, "waitpid");
    Program all;
    for (long index = 0;; ++index) {
        const Program program = readFilter(process, index);
        if (program.empty()) {
            break;
        }
        all.insert(all.begin(), program.begin(), program.end());
        all.insert(all.begin(), {0, 0, 0, static_cast<unsigned>(program.size())});
    }
    must(!all.empty(), "PTRACE_SECCOMP_GET_FILTER");
    FILE* file = std::fopen(argv[2], "we");
    must(file != nullptr &&
             std::fwrite(all.data(), sizeof(sock_filter), all.size(), file) == all.size() &&
             std::fclose(file) == 0,
         argv[2]);
    return 0;
}
