#include "libkiv/filter_program.h"

#include <asm/ioctls.h>
#include <linux/audit.h>
#include <linux/ipc.h>
#include <linux/net.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

#include "libkiv/system_calls.h"

namespace {

using Program = std::vector<sock_filter>;
using Part = std::span<const sock_filter>;

/// Calls that share one number on older tables and are selected by argument 0: socketcall(2),
/// ipc(2). Sorted by name.
struct SharedNumber {
    std::string_view name;
    const char* sharedBy;
    std::uint32_t inArgument;
};

constexpr SharedNumber kSharedNumbers[] = {
    {"accept", "socketcall", SYS_ACCEPT},
    {"accept4", "socketcall", SYS_ACCEPT4},
    {"bind", "socketcall", SYS_BIND},
    {"connect", "socketcall", SYS_CONNECT},
    {"getpeername", "socketcall", SYS_GETPEERNAME},
    {"getsockname", "socketcall", SYS_GETSOCKNAME},
    {"getsockopt", "socketcall", SYS_GETSOCKOPT},
    {"listen", "socketcall", SYS_LISTEN},
    {"msgctl", "ipc", MSGCTL},
    {"msgget", "ipc", MSGGET},
    {"msgrcv", "ipc", MSGRCV},
    {"msgsnd", "ipc", MSGSND},
    {"recv", "socketcall", SYS_RECV},
    {"recvfrom", "socketcall", SYS_RECVFROM},
    {"recvmmsg", "socketcall", SYS_RECVMMSG},
    {"recvmsg", "socketcall", SYS_RECVMSG},
    {"semctl", "ipc", SEMCTL},
    {"semget", "ipc", SEMGET},
    {"semop", "ipc", SEMOP},
    {"semtimedop", "ipc", SEMTIMEDOP},
    {"send", "socketcall", SYS_SEND},
    {"sendmmsg", "socketcall", SYS_SENDMMSG},
    {"sendmsg", "socketcall", SYS_SENDMSG},
    {"sendto", "socketcall", SYS_SENDTO},
    {"setsockopt", "socketcall", SYS_SETSOCKOPT},
    {"shmat", "ipc", SHMAT},
    {"shmctl", "ipc", SHMCTL},
    {"shmdt", "ipc", SHMDT},
    {"shmget", "ipc", SHMGET},
    {"shutdown", "socketcall", SYS_SHUTDOWN},
    {"socket", "socketcall", SYS_SOCKET},
    {"socketpair", "socketcall", SYS_SOCKETPAIR},
};
/// The upper half of ipc(2)'s argument is a version, which the kernel masks out.
constexpr std::uint32_t kNumberInArgument = 0xffff;

constexpr std::uint32_t kX32 = AUDIT_ARCH_X86_64 & ~__AUDIT_ARCH_64BIT;
/// Set in the numbers of x32; the kernel reports the architecture of such calls as that of 64-bit
/// programs, seccomp(2).
constexpr std::uint32_t kX32Bit = 0x40000000;
/// The number of a call that a tracer has cancelled, ptrace(2).
constexpr std::uint32_t kTakenByTracer = 0xffffffff;

// ioctl(2) requests
constexpr std::uint32_t kTerminalSubcodes = 0x541c;  // TIOCLINUX, ioctl_console(2)
// PIDFD_GET_INFO reports the user, the parent and the cgroup of any process of the host, even of
// those that hidepid hides. The upper half of the request encodes the structure's size and the
// direction of the copy, and the kernel accepts many values there.
constexpr std::uint32_t kProcessInformation = 0xff0b;
constexpr std::uint32_t kWithoutSize = 0xffff;

// personality(2): PER_LINUX32 and UNAME26 only change the result of uname(2); all bits set is a
// query
constexpr std::uint32_t kHarmlessBits = 0x0008 | 0x20000;
constexpr std::uint32_t kQuestion = 0xffffffff;

constexpr std::uint32_t kDenied = SECCOMP_RET_ERRNO | EPERM;
constexpr std::uint32_t kMissing = SECCOMP_RET_ERRNO | ENOSYS;

constexpr sock_filter load(std::size_t offset) {
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}

/// An argument's lower 32 bits. In the calls that are checked here the kernel ignores the upper
/// bits: a filter that compared them too could be bypassed by setting one.
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

// jumps; `count` is the number of instructions that they skip
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

constexpr sock_filter kDeny[] = {answerWith(kDenied)};
constexpr sock_filter kKill[] = {answerWith(SECCOMP_RET_KILL_PROCESS)};
constexpr sock_filter kMiss[] = {answerWith(kMissing)};
constexpr sock_filter kNewUserNamespace[] = {loadArgument(0), passOverUnlessAnyOf(CLONE_NEWUSER, 1),
                                             answerWith(kDenied)};
constexpr sock_filter kHarmfulRequests[] = {loadArgument(1),
                                            passOverUnless(TIOCSTI, 1),
                                            answerWith(kDenied),
                                            passOverUnless(kTerminalSubcodes, 1),
                                            answerWith(kDenied),
                                            passOverUnless(TIOCSETD, 1),
                                            answerWith(kDenied),
                                            keep(kWithoutSize),
                                            passOverUnless(kProcessInformation, 1),
                                            answerWith(kDenied)};
constexpr sock_filter kOddPersonality[] = {loadArgument(0), passOverIf(kQuestion, 3),
                                           keep(~kHarmlessBits), passOverIf(0, 1),
                                           answerWith(kDenied)};
constexpr sock_filter kVsock[] = {loadArgument(0), passOverUnless(AF_VSOCK, 1),
                                  answerWith(kDenied)};

/// The instructions for a call whose number matches. A call that none of them answers is allowed.
Part answersTo(Answer answer) {
    switch (answer) {
        case Answer::Deny:
            return kDeny;
        case Answer::Kill:
            return kKill;
        case Answer::Missing:
            return kMiss;
        case Answer::DenyNewUserNamespace:
            return kNewUserNamespace;
        case Answer::DenyHarmfulRequests:
            return kHarmfulRequests;
        case Answer::DenyOddPersonality:
            return kOddPersonality;
        case Answer::DenyVsock:
            return kVsock;
    }
    return {};
}

/// True when the answer does not depend on the call's arguments.
bool isWhole(Answer answer) {
    return answer == Answer::Deny || answer == Answer::Kill || answer == Answer::Missing;
}

/// The architecture that the kernel reports to a filter for a table's calls.
std::uint32_t shownArchitecture(const SystemCallTable& table) {
    return table.architecture == kX32 ? AUDIT_ARCH_X86_64 : table.architecture;
}

bool isOpen(const SystemCallTable& table, const SystemCallRules& rules) {
    return rules.deniedTables.count(table.name) == 0;
}

/// The answer to a number, or to one of the calls that share it.
struct NumberedAnswer {
    std::uint32_t number;
    std::uint32_t inArgument;  ///< as in SharedNumber; 0 for a call with its own number
    Answer answer;
};
using Answers = std::vector<NumberedAnswer>;

/// Adds the answer where the call shares its number with others. Answers that depend on arguments
/// are left out: there the arguments are in memory, which a filter cannot read.
void addShared(Answers& answers, const std::string& name, Answer answer, std::size_t table) {
    const auto* const shared = std::lower_bound(
        std::begin(kSharedNumbers), std::end(kSharedNumbers), name,
        [](const SharedNumber& row, const std::string& wanted) { return row.name < wanted; });
    if (shared == std::end(kSharedNumbers) || shared->name != name || !isWhole(answer)) {
        return;
    }
    if (const auto number = systemCallNumber(shared->sharedBy, table)) {
        answers.push_back({*number, shared->inArgument, answer});
    }
}

/// The answers to all calls that the kernel reports with one architecture, sorted by number.
Answers answersOn(std::uint32_t architecture, const SystemCallRules& rules) {
    Answers answers;
    for (std::size_t table = 0; table < countOfTables(); ++table) {
        const SystemCallTable& described = systemCallTable(table);
        if (shownArchitecture(described) != architecture || !isOpen(described, rules)) {
            continue;
        }
        for (const auto& [name, answer] : rules.calls) {
            if (const auto number = systemCallNumber(name, table)) {
                answers.push_back({*number, 0, answer});
            }
            addShared(answers, name, answer, table);
        }
    }
    std::sort(answers.begin(), answers.end(),
              [](const NumberedAnswer& one, const NumberedAnswer& other) {
                  return one.number < other.number;
              });
    return answers;
}

void append(Program& program, Part part) {
    program.insert(program.end(), part.begin(), part.end());
}

/// How many instructions follow the one at `index`.
std::size_t behind(const Program& program, std::size_t index) {
    return program.size() - index - 1;
}

/// Appends the answers to the first number, and returns the rest.
std::span<const NumberedAnswer> appendNumber(Program& program,
                                             std::span<const NumberedAnswer> answers) {
    const std::uint32_t number = answers.front().number;
    const std::size_t comparison = program.size();
    program.push_back(passOverUnless(number, 0));
    bool answersAll = false;
    for (; !answers.empty() && answers.front().number == number; answers = answers.subspan(1)) {
        const NumberedAnswer& next = answers.front();
        if (next.inArgument != 0) {
            append(program, std::array{loadArgument(0), keep(kNumberInArgument),
                                       passOverUnless(next.inArgument, 1)});
        }
        append(program, answersTo(next.answer));
        answersAll = answersAll || (next.inArgument == 0 && isWhole(next.answer));
    }
    if (!answersAll) {
        program.push_back(answerWith(SECCOMP_RET_ALLOW));
    }
    program[comparison].jf = static_cast<std::uint8_t>(behind(program, comparison));
    return answers;
}

/// A binary search until few numbers are left: most calls of a program match none and would be
/// compared with all of them.
void appendSearch(Program& program, std::span<const NumberedAnswer> answers) {
    constexpr std::size_t kFew = 4;
    auto middle = answers.begin() + static_cast<std::ptrdiff_t>(answers.size() / 2);
    while (middle != answers.begin() && middle->number == std::prev(middle)->number) {
        --middle;  // keeps all answers to one number on one side
    }
    if (answers.size() > kFew && middle != answers.begin()) {
        program.push_back(passOverBelow(middle->number, 1));
        const std::size_t jump = program.size();
        program.push_back(passOver(0));
        appendSearch(program, {answers.begin(), middle});
        program[jump].k = static_cast<std::uint32_t>(behind(program, jump));
        appendSearch(program, {middle, answers.end()});
        return;
    }
    while (!answers.empty()) {
        answers = appendNumber(program, answers);
    }
    program.push_back(answerWith(SECCOMP_RET_ALLOW));
}

/// Appends the instructions for one architecture's calls.
void appendCalls(Program& program, std::uint32_t architecture, const SystemCallRules& rules) {
    program.push_back(load(offsetof(seccomp_data, nr)));
    if (architecture == AUDIT_ARCH_X86_64 && rules.deniedTables.count("x32") != 0) {
        append(program, std::array{passOverIf(kTakenByTracer, 2), passOverBelow(kX32Bit, 1),
                                   answerWith(kMissing)});
    }
    appendSearch(program, answersOn(architecture, rules));
}

}  // namespace

std::vector<sock_filter> filterProgram(const SystemCallRules& rules) {
    Program program = {load(offsetof(seccomp_data, arch))};
    for (std::size_t i = 0; i < countOfTables(); ++i) {
        const SystemCallTable& table = systemCallTable(i);
        if (shownArchitecture(table) != table.architecture || !isOpen(table, rules)) {
            continue;  // handled with the architecture that the kernel reports, or denied as a
                       // whole
        }
        program.push_back(passOverIf(table.architecture, 1));
        const std::size_t jump = program.size();
        program.push_back(passOver(0));
        appendCalls(program, table.architecture, rules);
        program[jump].k = static_cast<std::uint32_t>(behind(program, jump));
    }
    program.push_back(answerWith(SECCOMP_RET_KILL_PROCESS));
    return program;
}
