// Writes the system-call filter of a running process to a file, as the kernel keeps it: what
// floor/exec.cpp installs is then what kivctl has installed. See ptrace(2),
// PTRACE_SECCOMP_GET_FILTER.
//   save_filter PID FILE
#include <linux/filter.h>
#include <sys/ptrace.h>

#include <vector>

#include "floor.h"

int main(int argc, char** argv) {
    must(argc == 3, "usage: save_filter PID FILE");
    const auto process = static_cast<pid_t>(std::strtol(argv[1], nullptr, 10));
    int status = 0;
    must(::ptrace(PTRACE_ATTACH, process, nullptr, nullptr) == 0, "PTRACE_ATTACH");
    must(::waitpid(process, &status, 0) == process, "waitpid");
    const long length = ::ptrace(PTRACE_SECCOMP_GET_FILTER, process, 0, nullptr);
    must(length > 0, "PTRACE_SECCOMP_GET_FILTER");
    std::vector<sock_filter> program(static_cast<std::size_t>(length));
    must(::ptrace(PTRACE_SECCOMP_GET_FILTER, process, 0, program.data()) == length,
         "PTRACE_SECCOMP_GET_FILTER");
    FILE* file = std::fopen(argv[2], "we");
    must(file != nullptr &&
             std::fwrite(program.data(), sizeof(sock_filter), program.size(), file) ==
                 program.size() &&
             std::fclose(file) == 0,
         argv[2]);
    return 0;
}
