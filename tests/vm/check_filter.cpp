// check_filter PID: reads the process's system-call filter back from the kernel, ptrace(2), and
// compares its answers with the default rules, call by call, for every table of system calls that
// the machine has. Needs root and a kernel with CONFIG_CHECKPOINT_RESTORE. Exits with 1 and the
// calls that differ.
#include <asm/ioctls.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cmake/new_system_calls.h"
#include "libkiv/system_call_rules.h"
#include "tests/unit/libkiv/filter_interpreter.h"

namespace {

using filter_interpreter::answerOf;
using filter_interpreter::Program;

constexpr std::uint32_t kX32Bit = 0x40000000;
constexpr std::uint32_t kDenied = SECCOMP_RET_ERRNO | EPERM;
constexpr std::uint32_t kMissing = SECCOMP_RET_ERRNO | ENOSYS;
constexpr std::uint32_t kCalls = 1000;           // no table has as many
constexpr std::uint32_t kCallsOfArm = 0x0f0000;  // where the numbers of ARM's own calls begin

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "check_filter: %s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(2);
}

/// The filter with that index, counted from the latest one; empty when there is none.
Program filterOf(pid_t pid, unsigned long index) {
    const long length = ::ptrace(PTRACE_SECCOMP_GET_FILTER, pid, index, nullptr);
    // EINVAL: the process has no filter
    if (length < 0 && errno != ENOENT && errno != EINVAL) {
        fail("PTRACE_SECCOMP_GET_FILTER");
    }
    Program program(length < 0 ? 0 : static_cast<std::size_t>(length));
    if (length > 0 && ::ptrace(PTRACE_SECCOMP_GET_FILTER, pid, index, program.data()) != length) {
        fail("PTRACE_SECCOMP_GET_FILTER");
    }
    return program;
}

/// The process's only filter.
Program onlyFilterOf(pid_t pid) {
    if (::ptrace(PTRACE_SEIZE, pid, nullptr, nullptr) != 0 ||
        ::ptrace(PTRACE_INTERRUPT, pid, nullptr, nullptr) != 0 ||
        ::waitpid(pid, nullptr, __WALL) != pid) {
        fail("cannot stop the process");
    }
    Program program = filterOf(pid, 0);
    const bool another = !filterOf(pid, 1).empty();
    ::ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
    if (program.empty() || another) {
        std::fprintf(stderr, "check_filter: the process has %s\n",
                     another ? "two filters" : "none");
        std::exit(1);
    }
    return program;
}

std::uint32_t deniedIf(bool condition) {
    return condition ? kDenied : SECCOMP_RET_ALLOW;
}

/// The expected answer for a call with these arguments, of which the kernel uses 32 bits.
std::uint32_t meaningOf(Answer answer, const seccomp_data& call) {
    const auto first = static_cast<std::uint32_t>(call.args[0]);
    const auto second = static_cast<std::uint32_t>(call.args[1]);
    switch (answer) {
        case Answer::Deny:
            return kDenied;
        case Answer::Kill:
            return SECCOMP_RET_KILL_PROCESS;
        case Answer::Missing:
            return kMissing;
        case Answer::DenyNewUserNamespace:
            return deniedIf((first & CLONE_NEWUSER) != 0);
        case Answer::DenyHarmfulRequests:
            return deniedIf(second == TIOCSTI || second == TIOCLINUX || second == TIOCSETD ||
                            (second & 0xffff) == 0xff0b);  // PIDFD_GET_INFO of every size
        case Answer::DenyOddPersonality:
            return deniedIf(first != 0xffffffff && (first & ~0x20008U) != 0);
        case Answer::DenyVsock:
            return deniedIf(first == AF_VSOCK);
    }
    return 0;
}

/// A table of calls, as the kernel presents it to filters.
struct Table {
    const char* name;
    std::uint32_t number;  ///< libseccomp's
    std::uint32_t shown;
};

std::vector<Table> tables() {
    if (seccomp_arch_native() == SCMP_ARCH_AARCH64) {
        return {{"arm64", SCMP_ARCH_AARCH64, SCMP_ARCH_AARCH64},
                {"arm", SCMP_ARCH_ARM, SCMP_ARCH_ARM}};
    }
    if (seccomp_arch_native() == SCMP_ARCH_X86_64) {
        return {{"x86-64", SCMP_ARCH_X86_64, SCMP_ARCH_X86_64},
                {"i386", SCMP_ARCH_X86, SCMP_ARCH_X86},
                {"x32", SCMP_ARCH_X32, SCMP_ARCH_X86_64}};
    }
    return {{"own", seccomp_arch_native(), seccomp_arch_native()}};
}

/// By number; empty for a number without a call.
std::string nameOf(const Table& table, std::uint32_t number) {
    const std::unique_ptr<char, void (*)(void*)> known(
        seccomp_syscall_resolve_num_arch(table.number, static_cast<int>(number)), std::free);
    for (const NewSystemCall& call : kNewSystemCalls) {
        if ((number & ~kX32Bit) == call.number) {
            return call.name;
        }
    }
    return known ? known.get() : "";
}

/// Arguments that some rule checks, and their neighbours; the upper halves must not matter.
std::vector<seccomp_data> withArguments(seccomp_data call) {
    std::vector<seccomp_data> calls;
    for (const std::uint64_t upper : {0ULL, 0xfeed'0000'0000'0000ULL, 0x1'0000'0000ULL}) {
        for (const std::uint64_t first :
             {0U, 8U, 0x20000U, 0x20008U, 0x40000U, 0xffffffffU, 0x80000000U, 1U * AF_VSOCK,
              1U * AF_VSOCK + 1, 1U * AF_INET, 1U * CLONE_NEWUSER, CLONE_NEWUSER | 0x11U,
              1U * CLONE_NEWNS}) {
            call.args[0] = upper | first;
            call.args[1] = 0;
            calls.push_back(call);
        }
        for (const std::uint64_t second :
             {1U * TIOCSTI, TIOCSTI + 1U, 1U * TIOCLINUX, TIOCLINUX + 1U, 1U * TIOCSETD,
              TIOCSETD - 1U, 0xff0bU, 0xc040ff0bU, 0xff0cU, 1U * TCGETS}) {
            call.args[0] = 0;
            call.args[1] = upper | second;
            calls.push_back(call);
        }
    }
    return calls;
}

/// The result for one table.
struct Result {
    std::set<std::uint32_t> answered;  ///< numbers that are not allowed with all arguments
    int calls = 0;
    std::string differences;
};

void compare(const Program& program, const Table& table, std::uint32_t number,
             const SystemCallRules& rules, Result& result) {
    const std::string name = nameOf(table, number);
    const auto rule = rules.calls.find(name);
    for (const seccomp_data& call : withArguments({static_cast<int>(number), table.shown, 0, {}})) {
        const std::uint32_t wanted = rules.deniedTables.count(table.name) != 0 ? kMissing
                                     : rule == rules.calls.end()               ? SECCOMP_RET_ALLOW
                                                                 : meaningOf(rule->second, call);
        const std::uint32_t answer = answerOf(program, call);
        ++result.calls;
        if (answer != SECCOMP_RET_ALLOW) {
            result.answered.insert(number);
        }
        if (answer != wanted) {
            char text[160];
            std::snprintf(text, sizeof(text), "%s %s (%#x) %#llx %#llx: %#x, not %#x\n", table.name,
                          name.c_str(), number, static_cast<unsigned long long>(call.args[0]),
                          static_cast<unsigned long long>(call.args[1]), answer, wanted);
            result.differences += text;
        }
    }
}

Result compareTable(const Program& program, const Table& table, const SystemCallRules& rules) {
    Result result;
    const std::uint32_t bit = table.number == SCMP_ARCH_X32 ? kX32Bit : 0;
    for (const std::uint32_t begin : {0U, kCallsOfArm}) {
        for (std::uint32_t number = begin; number < begin + kCalls; ++number) {
            compare(program, table, number | bit, rules, result);
        }
    }
    return result;
}

/// Calls with an architecture that this machine does not run, or with a false one, must end the
/// process.
bool endsOthers(const Program& program) {
    for (const std::uint32_t other : {0U, 0x12345678U, 1U * SCMP_ARCH_S390X, 1U * SCMP_ARCH_MIPS}) {
        for (std::uint32_t number = 0; number < kCalls; ++number) {
            if (answerOf(program, {static_cast<int>(number), other, 0, {}}) !=
                SECCOMP_RET_KILL_PROCESS) {
                std::printf("architecture %#x, call %u is not ended\n", other, number);
                return false;
            }
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: check_filter PID\n", stderr);
        return 64;
    }
    const Program program = onlyFilterOf(std::atoi(argv[1]));
    std::printf("%zu instructions\n", program.size());
    const SystemCallRules rules = defaultSystemCallRules();
    bool good = endsOthers(program);
    for (const Table& table : tables()) {
        const Result result = compareTable(program, table, rules);
        std::printf("%s: %d calls, of which %zu numbers are not always allowed; %s\n", table.name,
                    result.calls, result.answered.size(),
                    result.differences.empty() ? "all as the rules mean it" : "these differ:");
        std::fputs(result.differences.c_str(), stdout);
        good = good && result.differences.empty();
    }
    return good ? 0 : 1;
}
