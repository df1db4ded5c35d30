#include "libkiv/filter_program.h"

#include <asm/ioctls.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/socket.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <iterator>
#include <optional>

namespace {

using Program = std::vector<sock_filter>;

struct Table {
    const char* name;
    std::uint32_t native;
    std::uint32_t architecture;
};

constexpr Table kTables[] = {
    {"i386", SCMP_ARCH_X86_64, SCMP_ARCH_X86},
    {"x32", SCMP_ARCH_X86_64, SCMP_ARCH_X32},
    {"arm", SCMP_ARCH_AARCH64, SCMP_ARCH_ARM},
};

struct NewCall {
    const char* name;
    std::uint32_t number;  ///< on all tables, as of every call since Linux 5.1
};

constexpr NewCall kNewCalls[] = {{"open_tree_attr", 467}};

/// libseccomp applies a rule on socket(2) to socketcall(2) as well, whose arguments are in memory,
/// where a filter cannot look. It then refuses every socket to programs that use that call.
constexpr std::uint32_t kSocketOfI386 = 359;

/// Part of the numbers of x32, which the kernel shows to a filter as those of a 64-bit program.
constexpr std::uint32_t kX32Bit = 0x40000000;
/// The number of a call that a tracer has taken from the kernel, ptrace(2).
constexpr std::uint32_t kTakenByTracer = 0xffffffff;

// ioctl(2) requests
constexpr std::uint32_t kTerminalSubcodes = 0x541c;  // TIOCLINUX, ioctl_console(2)
// PIDFD_GET_INFO shows the user, the parent and the cgroup of any process of the host, also of
// those that hidepid hides. The upper half of the request is the size of the caller's structure and
// the direction of the copy: the kernel takes many values.
constexpr std::uint32_t kProcessInformation = 0xff0b;
constexpr std::uint32_t kWithoutSize = 0xffff;

// personality(2): PER_LINUX32 and UNAME26 change what uname(2) says; all bits ask and change
// nothing
constexpr std::uint32_t kHarmlessBits = 0x0008 | 0x20000;
constexpr std::uint32_t kQuestion = 0xffffffff;

constexpr std::uint32_t kDenied = SECCOMP_RET_ERRNO | EPERM;
constexpr std::uint32_t kMissing = SECCOMP_RET_ERRNO | ENOSYS;

constexpr sock_filter load(std::size_t offset) {
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}

/// An argument's lower 32 bits. The kernel ignores the others in the calls that are checked here: a
/// filter that compares them is bypassed by setting one.
constexpr sock_filter loadArgument(std::size_t index) {
    constexpr std::size_t kLowHalf = std::endian::native == std::endian::big ? 4 : 0;
    return load(offsetof(seccomp_data, args) + index * sizeof(seccomp_data::args[0]) + kLowHalf);
}

constexpr sock_filter keep(std::uint32_t bits) {
    return BPF_STMT(BPF_ALU | BPF_AND | BPF_K, bits);
}

constexpr sock_filter answerWith(std::uint32_t action) {
    return BPF_STMT(BPF_RET | BPF_K, action);
}

// jumps, by the number of instructions that they pass over
constexpr sock_filter passOver(std::size_t count) {
    return BPF_STMT(BPF_JMP | BPF_JA, static_cast<std::uint32_t>(count));
}

constexpr sock_filter passOverIf(std::uint32_t value, std::uint8_t count) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, count, 0);
}

constexpr sock_filter passOverUnless(std::uint32_t value, std::uint8_t count) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, count);
}

constexpr sock_filter passOverUnlessAnyOf(std::uint32_t bits, std::uint8_t count) {
    return BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, bits, 0, count);
}

constexpr sock_filter passOverBelow(std::uint32_t value, std::uint8_t count) {
    return BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, value, 0, count);
}

void append(Program& program, const Program& part) {
    program.insert(program.end(), part.begin(), part.end());
}

/// The instructions for a call whose number matches. The call is allowed if none of them answers.
Program answersTo(Answer answer) {
    switch (answer) {
        case Answer::Deny:
            return {answerWith(kDenied)};
        case Answer::Kill:
            return {answerWith(SECCOMP_RET_KILL_PROCESS)};
        case Answer::Missing:
            return {answerWith(kMissing)};
        case Answer::DenyNewUserNamespace:
            return {loadArgument(0), passOverUnlessAnyOf(CLONE_NEWUSER, 1), answerWith(kDenied)};
        case Answer::DenyHarmfulRequests:
            return {loadArgument(1),
                    passOverUnless(TIOCSTI, 1),
                    answerWith(kDenied),
                    passOverUnless(kTerminalSubcodes, 1),
                    answerWith(kDenied),
                    passOverUnless(TIOCSETD, 1),
                    answerWith(kDenied),
                    keep(kWithoutSize),
                    passOverUnless(kProcessInformation, 1),
                    answerWith(kDenied)};
        case Answer::DenyOddPersonality:
            return {loadArgument(0), passOverIf(kQuestion, 3), keep(~kHarmlessBits),
                    passOverIf(0, 1), answerWith(kDenied)};
        case Answer::DenyVsock:
            return {loadArgument(0), passOverUnless(AF_VSOCK, 1), answerWith(kDenied)};
    }
    return {};
}

/// The architecture by which the kernel shows a table's calls to a filter.
std::uint32_t shownArchitecture(std::uint32_t table) {
    return table == SCMP_ARCH_X32 ? SCMP_ARCH_X86_64 : table;
}

/// Nothing for a call that the table does not have.
std::optional<std::uint32_t> numberOf(const std::string& name, std::uint32_t table) {
    if (table == SCMP_ARCH_X86 && name == "socket") {
        return kSocketOfI386;
    }
    for (const NewCall& call : kNewCalls) {
        if (call.name == name) {
            return table == SCMP_ARCH_X32 ? call.number | kX32Bit : call.number;
        }
    }
    const int number = seccomp_syscall_resolve_name_arch(table, name.c_str());
    return number < 0 ? std::nullopt : std::optional(static_cast<std::uint32_t>(number));
}

void appendCalls(Program& program, std::uint32_t table, const SystemCallRules& rules) {
    for (const auto& [name, answer] : rules.calls) {
        const auto number =
            isAnsweredByProgram(name, answer) ? numberOf(name, table) : std::nullopt;
        if (!number) {
            continue;
        }
        Program answers = answersTo(answer);
        answers.push_back(answerWith(SECCOMP_RET_ALLOW));
        program.push_back(passOverUnless(*number, static_cast<std::uint8_t>(answers.size())));
        append(program, answers);
    }
}

/// The answers to all calls that the kernel shows with one architecture.
Program callsOf(std::uint32_t architecture, const SystemCallRules& rules) {
    Program program = {load(offsetof(seccomp_data, nr))};
    for (const std::uint32_t table : openTables(rules)) {
        if (shownArchitecture(table) == architecture) {
            appendCalls(program, table, rules);
        }
    }
    if (architecture == SCMP_ARCH_X86_64 && rules.deniedTables.count("x32") != 0) {
        append(program,
               {passOverIf(kTakenByTracer, 2), passOverBelow(kX32Bit, 1), answerWith(kMissing)});
    }
    program.push_back(answerWith(SECCOMP_RET_ALLOW));
    return program;
}

}  // namespace

bool isSystemCallTable(const std::string& name) {
    return std::any_of(std::begin(kTables), std::end(kTables),
                       [&name](const Table& table) { return table.name == name; });
}

bool isNewSystemCall(const std::string& name) {
    return std::any_of(std::begin(kNewCalls), std::end(kNewCalls), [&name](const NewCall& call) {
        return call.name == name && seccomp_syscall_resolve_name(call.name) == __NR_SCMP_ERROR;
    });
}

std::vector<std::uint32_t> openTables(const SystemCallRules& rules) {
    std::vector<std::uint32_t> open = {seccomp_arch_native()};
    for (const Table& table : kTables) {
        if (table.native == open.front() && rules.deniedTables.count(table.name) == 0) {
            open.push_back(table.architecture);
        }
    }
    return open;
}

bool isAnsweredByProgram(const std::string& name, Answer answer) {
    const bool wholly =
        answer == Answer::Deny || answer == Answer::Kill || answer == Answer::Missing;
    return !wholly || isNewSystemCall(name);
}

std::vector<sock_filter> filterProgram(const SystemCallRules& rules) {
    const auto loadArchitecture = load(offsetof(seccomp_data, arch));
    Program program = {loadArchitecture};
    for (const std::uint32_t table : openTables(rules)) {
        if (shownArchitecture(table) != table) {
            continue;  // among the calls of the other that is shown so
        }
        const Program calls = callsOf(table, rules);
        append(program, {passOverIf(table, 1), passOver(calls.size())});
        append(program, calls);
    }
    program.push_back(answerWith(SECCOMP_RET_KILL_PROCESS));
    return program;
}
