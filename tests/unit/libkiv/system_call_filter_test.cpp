#include <asm/ioctls.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"
#include "../util/failure_of.h"
#include "cmake/new_system_calls.h"
#include "libkiv/system_call_rules.h"

namespace {

/// Makes a system call. Returns 0 or its errno. The arguments go to the kernel unchanged.
template <typename... Arguments>
int answerOf(long number, Arguments... arguments) {
    return ::syscall(number, static_cast<unsigned long>(arguments)...) == -1 ? errno : 0;
}

/// Runs `action` in a process under the rules.
ChildResult resultUnder(const SystemCallRules& rules, const std::function<int()>& action) {
    return inChild([&] {
        dropPrivileges();
        require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
        installSystemCallFilter(rules);
        return action();
    });
}

/// The result of `action`, or the negated signal that ended its process.
int underRules(const SystemCallRules& rules, const std::function<int()>& action) {
    return outcome(resultUnder(rules, action));
}

/// The same with rules that have only answers to calls.
int underAnswers(const std::map<std::string, Answer>& calls, const std::function<int()>& action) {
    return underRules(SystemCallRules{.calls = calls, .deniedTables = {}}, action);
}

/// The same without a filter: the kernel's own answer.
int unfiltered(const std::function<int()>& action) {
    return outcome(inChild([&] {
        dropPrivileges();
        return action();
    }));
}

/// An address that the kernel refuses to read: the call fails there at the latest.
constexpr unsigned long kNoAddress = 1;
constexpr unsigned long kNothing = -1UL;  ///< as a descriptor or a command
constexpr unsigned long kUpperHalf = 0xabcd'ef01'0000'0000;

#ifdef SYS_open_tree_attr  // newer headers have it
static_assert(kOpenTreeAttr == SYS_open_tree_attr);
#endif

TEST(SystemCallFilter, AnswersADeniedCallWithEperm) {
    const auto call = [] { return answerOf(SYS_getppid); };
    EXPECT_EQ(underAnswers({}, call), 0);
    EXPECT_EQ(underAnswers({{"getppid", Answer::Deny}}, call), EPERM);
}

TEST(SystemCallFilter, EndsTheProcessAtAKilledCall) {
    EXPECT_EQ(underAnswers({{"getppid", Answer::Kill}}, [] { return answerOf(SYS_getppid); }),
              -SIGSYS);
}

TEST(SystemCallFilter, EndsTheWholeProcessWhenAThreadMakesAKilledCall) {
    EXPECT_EQ(underAnswers({{"getppid", Answer::Kill}},
                           [] {
                               std::thread([] { answerOf(SYS_getppid); }).join();
                               return 0;
                           }),
              -SIGSYS);
}

TEST(SystemCallFilter, AnswersAMissingCallWithEnosys) {
    EXPECT_EQ(underAnswers({{"getppid", Answer::Missing}}, [] { return answerOf(SYS_getppid); }),
              ENOSYS);
}

TEST(SystemCallFilter, LeavesOtherCallsAlone) {
    const std::map<std::string, Answer> rules = {{"getppid", Answer::Deny},
                                                 {"getpgid", Answer::Kill}};
    EXPECT_EQ(underAnswers(rules, [] { return answerOf(SYS_getpid); }), 0);
    EXPECT_EQ(underAnswers(rules, [] { return answerOf(SYS_close, kNothing); }), EBADF);
}

TEST(SystemCallFilter, HoldsInChildrenAndThreads) {
    const std::map<std::string, Answer> rules = {{"getppid", Answer::Deny}};
    EXPECT_EQ(underAnswers(rules,
                           [] {
                               int answer = 0;
                               std::thread([&answer] { answer = answerOf(SYS_getppid); }).join();
                               return answer;
                           }),
              EPERM);
    EXPECT_EQ(underAnswers(rules,
                           [] {
                               const pid_t child = ::fork();
                               if (child == 0) {
                                   ::_exit(answerOf(SYS_getppid));
                               }
                               int status = 0;
                               ::waitpid(child, &status, 0);
                               return WEXITSTATUS(status);
                           }),
              EPERM);
}

TEST(SystemCallFilter, IgnoresNamesThatTheArchitectureDoesNotHave) {
    const std::map<std::string, Answer> rules = {{"stime", Answer::Deny},
                                                 {"iopl", Answer::Kill},
                                                 {"umount", Answer::Deny},
                                                 {"clock_settime64", Answer::Deny},
                                                 {"pciconfig_iobase", Answer::Deny},
                                                 {"getppid", Answer::Deny}};
    EXPECT_EQ(underAnswers(rules, [] { return answerOf(SYS_getppid); }), EPERM);
}

// no_new_privs would disable the group of the set-group-ID mail and cron helpers
TEST(SystemCallFilter, LeavesNoNewPrivilegesUnset) {
    const auto result = inChild([] {
        failureOf([] {
            installSystemCallFilter(SystemCallRules{{{"getppid", Answer::Deny}}, {}});
        });
        return ::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0);
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(SystemCallFilter, ReportsWhyTheKernelRefusedIt) {
    const auto result = inChild([] {
        dropPrivileges();
        std::cout << failureOf([] {
            installSystemCallFilter(SystemCallRules{{{"getppid", Answer::Deny}}, {}});
        });
        return answerOf(SYS_getppid);
    });
    EXPECT_EQ(result.output, "system-call filter: seccomp(): Permission denied");
    EXPECT_EQ(outcome(result), 0);
}

/// A call with arguments for which the kernel's own answer is never EPERM, for any caller.
struct Denied {
    const char* name;
    std::function<int()> call;
};

std::ostream& operator<<(std::ostream& stream, const Denied& denied) {
    return stream << denied.name;
}

class DefaultDenial : public testing::TestWithParam<Denied> {};

TEST_P(DefaultDenial, IsTheFiltersAnswer) {
    EXPECT_NE(unfiltered(GetParam().call), EPERM);
    EXPECT_EQ(underRules(defaultSystemCallRules(), GetParam().call), EPERM);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, DefaultDenial,
    testing::Values(
        Denied{"mount", [] { return answerOf(SYS_mount, 0, kNoAddress, kNoAddress, 0, 0); }},
        Denied{"umount2", [] { return answerOf(SYS_umount2, kNoAddress, kNothing); }},
        Denied{"setns", [] { return answerOf(SYS_setns, kNothing, 0); }},
        Denied{"add_key", [] { return answerOf(SYS_add_key, kNoAddress, 0, 0, 0, 0); }},
        Denied{"request_key", [] { return answerOf(SYS_request_key, kNoAddress, 0, 0, 0); }},
        Denied{"keyctl", [] { return answerOf(SYS_keyctl, kNothing); }},
        Denied{"perf_event_open",
               [] { return answerOf(SYS_perf_event_open, kNoAddress, 0, 0, 0); }},
        Denied{"io_uring_enter", [] { return answerOf(SYS_io_uring_enter, kNothing, 0, 0, 0, 0); }},
        Denied{"settimeofday", [] { return answerOf(SYS_settimeofday, kNoAddress, 0); }},
        Denied{"clock_settime", [] { return answerOf(SYS_clock_settime, kNothing, kNoAddress); }},
        Denied{"adjtimex", [] { return answerOf(SYS_adjtimex, kNoAddress); }},
        Denied{"clock_adjtime", [] { return answerOf(SYS_clock_adjtime, 0, kNoAddress); }},
        Denied{"quotactl", [] { return answerOf(SYS_quotactl, kNothing, 0, 0, 0); }},
        Denied{"unshare: a user namespace",
               [] { return answerOf(SYS_unshare, CLONE_NEWUSER | 1); }},
        Denied{"clone: a user namespace",
               [] { return answerOf(SYS_clone, CLONE_NEWUSER | CLONE_FS | SIGCHLD, 0, 0, 0, 0); }},
        Denied{"clone: a user namespace and bits above",
               [] {
                   const unsigned long flags = CLONE_NEWUSER | CLONE_FS | SIGCHLD;
                   return answerOf(SYS_clone, flags | kUpperHalf, 0, 0, 0, 0);
               }},
        Denied{"ioctl: a byte into a terminal",
               [] { return answerOf(SYS_ioctl, kNothing, TIOCSTI, 0); }},
        Denied{"ioctl: a byte into a terminal and bits above",
               [] { return answerOf(SYS_ioctl, kNothing, TIOCSTI | kUpperHalf, 0); }},
        Denied{"ioctl: a selection into a terminal",
               [] { return answerOf(SYS_ioctl, kNothing, 0x541c, 0); }},
        Denied{"ioctl: a selection into a terminal and bits above",
               [] { return answerOf(SYS_ioctl, kNothing, 0x541c | kUpperHalf, 0); }},
        Denied{"ioctl: a line discipline",
               [] { return answerOf(SYS_ioctl, kNothing, TIOCSETD, 0); }},
        Denied{"ioctl: a line discipline and bits above",
               [] { return answerOf(SYS_ioctl, kNothing, TIOCSETD | kUpperHalf, 0); }},
        Denied{"kcmp", [] { return answerOf(SYS_kcmp, ::getpid(), ::getpid(), kNothing, 0, 0); }},
        Denied{"move_pages", [] { return answerOf(SYS_move_pages, 0, 0, 0, 0, 0, kNothing); }},
        Denied{"migrate_pages",
               [] { return answerOf(SYS_migrate_pages, 0, 64, kNoAddress, kNoAddress); }},
        Denied{"open_tree_attr",
               [] { return answerOf(kOpenTreeAttr, kNothing, kNoAddress, kNothing, 0, 0); }},
        Denied{"socket: to the hypervisor",
               [] { return answerOf(SYS_socket, AF_VSOCK, kNothing, 0); }},
        Denied{"socket: to the hypervisor and bits above",
               [] { return answerOf(SYS_socket, AF_VSOCK | kUpperHalf, kNothing, 0); }}));

/// A request of ioctl(2) for PIDFD_GET_INFO on `process` with a structure of that size.
int processInformation(int process, unsigned long direction, unsigned long size) {
    alignas(8) std::array<char, 1U << 14U> structure{};
    structure[0] = 1;  // the mask: asks for the process's id
    const unsigned long request = direction << 30U | size << 16U | 0xff0bU;
    return answerOf(SYS_ioctl, process, request, reinterpret_cast<unsigned long>(structure.data()));
}

TEST(DefaultFilter, DeniesInformationAboutProcessesInEverySize) {
    // in one process: 576 of them take 20 seconds with sanitizers
    const ChildResult result = resultUnder(defaultSystemCallRules(), [] {
        const int process = static_cast<int>(::syscall(SYS_pidfd_open, ::getpid(), 0));
        require(process >= 0);
        for (unsigned long size = 0; size < 1U << 14U; size += size < 128 ? 1 : 997) {
            for (unsigned long direction = 0; direction < 4; ++direction) {
                if (processInformation(process, direction, size) != EPERM) {
                    std::cout << "direction " << direction << ", size " << size << "\n";
                }
            }
        }
        std::cout << std::flush;
        return 0;
    });
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(outcome(result), 0);
}

TEST(DefaultFilter, LeavesOtherRequestsAboutProcessesToTheKernel) {
    for (const unsigned long request : {0xff0aUL, 0xff0cUL, 0xfe0bUL, 0xff0aUL | 64U << 16U}) {
        const auto call = [request] { return answerOf(SYS_ioctl, kNothing, request, 0); };
        EXPECT_EQ(underRules(defaultSystemCallRules(), call), EBADF) << std::hex << request;
    }
}

TEST(DefaultFilter, AllowsSocketsOfOtherFamilies) {
    for (const int family : {AF_UNIX, AF_INET, AF_INET6, AF_NETLINK}) {
        const auto call = [family] { return answerOf(SYS_socket, family, SOCK_DGRAM, 0); };
        EXPECT_EQ(underRules(defaultSystemCallRules(), call), unfiltered(call)) << family;
    }
    // the kernel's answers to a socket type that no family has
    EXPECT_EQ(underRules(defaultSystemCallRules(),
                         [] { return answerOf(SYS_socket, AF_INET, kNothing, 0); }),
              EINVAL);
}

TEST(SystemCallFilter, AnswersANewCallAsItsItemSays) {
    const auto call = [] { return answerOf(kOpenTreeAttr, kNothing, kNoAddress, kNothing, 0, 0); };
    EXPECT_EQ(underAnswers({{"open_tree_attr", Answer::Deny}}, call), EPERM);
    EXPECT_EQ(underAnswers({{"open_tree_attr", Answer::Kill}}, call), -SIGSYS);
    EXPECT_EQ(underAnswers({{"getppid", Answer::Deny}}, call), unfiltered(call));
}

TEST(SystemCallFilter, MayDenyWhatInstallsIt) {
    EXPECT_EQ(underAnswers({{"seccomp", Answer::Deny}, {"prctl", Answer::Deny}},
                           [] { return answerOf(SYS_seccomp, kNothing, 0, 0); }),
              EPERM);
}

TEST(SystemCallFilter, SetsNoNewPrivilegesWhereTheyAreAskedFor) {
    const auto result = inChild([] {
        dropPrivileges();  // with it the kernel accepts filters from any user
        installSystemCallFilter(SystemCallRules{{}, {}, /*noNewPrivileges=*/true});
        return ::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0);
    });
    EXPECT_EQ(outcome(result), 1);
}

TEST(DefaultFilter, MakesTheCLibraryUseTheOlderClone) {
    const auto call = [] { return answerOf(SYS_clone3, 0, 0); };
    EXPECT_EQ(unfiltered(call), EINVAL);
    EXPECT_EQ(underRules(defaultSystemCallRules(), call), ENOSYS);
}

TEST(DefaultFilter, AllowsProcessesAndThreads) {
    EXPECT_EQ(underRules(defaultSystemCallRules(),
                         [] {
                             int answer = 1;
                             std::thread([&answer] { answer = 0; }).join();
                             return answer == 0 ? ::system("exit 7") >> 8 : 1;
                         }),
              7);
}

TEST(DefaultFilter, LeavesOtherNamespacesToTheKernel) {
    // the kernel's answer to an unknown flag
    EXPECT_EQ(
        underRules(defaultSystemCallRules(), [] { return answerOf(SYS_unshare, CLONE_NEWNS | 1); }),
        EINVAL);
    EXPECT_EQ(underRules(defaultSystemCallRules(), [] { return answerOf(SYS_unshare, 0); }), 0);
}

TEST(DefaultFilter, AllowsOtherRequestsToTerminals) {
    for (const int request : {TCGETS, TIOCGWINSZ, TIOCSWINSZ, TIOCSCTTY, TIOCSPGRP, TIOCSTI - 1,
                              TIOCSTI + 1, 0x541b, 0x541d}) {
        EXPECT_EQ(underRules(defaultSystemCallRules(),
                             [request] { return answerOf(SYS_ioctl, kNothing, request, 0); }),
                  EBADF)
            << std::hex << request;
    }
}

/// The values of personality(2) in `asked` that do not fail with EPERM, in hexadecimal.
std::string harmless(const std::vector<unsigned long>& asked) {
    const auto result = resultUnder(defaultSystemCallRules(), [&asked] {
        for (const unsigned long value : asked) {
            const int answer = answerOf(SYS_personality, value);
            require(answer == 0 || answer == EPERM);
            if (answer == 0) {
                std::cout << std::hex << value << " ";
            }
        }
        std::cout << std::flush;
        return 0;
    });
    EXPECT_EQ(outcome(result), 0);
    return result.output;
}

TEST(DefaultFilter, AllowsAPersonalityThatChangesUnameAndAQuery) {
    EXPECT_EQ(harmless({0, 0x8, 0x20000, 0x20008, 0xffffffff}), "0 8 20000 20008 ffffffff ");
}

TEST(DefaultFilter, IgnoresTheUpperHalfOfAPersonalityAsTheKernelDoes) {
    EXPECT_EQ(harmless({kUpperHalf | 0x8, kUpperHalf | 0x40000, kNothing, kUpperHalf}),
              "abcdef0100000008 ffffffffffffffff abcdef0100000000 ");
}

TEST(DefaultFilter, DeniesEveryOtherBitOfAPersonality) {
    std::vector<unsigned long> asked;
    for (unsigned long bit = 1; bit <= 0x8000'0000; bit <<= 1) {
        asked.push_back(bit);                // alone
        asked.push_back(bit | 0x20008);      // beside the harmless ones
        asked.push_back(0xffffffff & ~bit);  // missing from all of them
        asked.push_back(0x80000000 | bit);
        asked.push_back(0x7fffffff & ~bit);
    }
    EXPECT_EQ(harmless(asked), "8 20008 20000 20008 ");
}

TEST(DefaultFilter, DeniesEveryPairOfBitsOfAPersonalityAndAllButTwo) {
    std::vector<unsigned long> asked;
    for (unsigned long one = 1; one <= 0x8000'0000; one <<= 1) {
        for (unsigned long other = 1; other < one; other <<= 1) {
            asked.push_back(one | other);
            asked.push_back(0xffffffff & ~(one | other));
            asked.push_back((one | other) ^ 0x20008);
            asked.push_back(0xffffffff & ~(one - other));  // all but those between
            asked.push_back(one - other);
        }
    }
    std::erase_if(asked, [](unsigned long value) { return (value & ~0x20008UL) == 0; });
    EXPECT_EQ(harmless(asked), "");
}

#ifdef __x86_64__

// The filter on the other architectures that an x86-64 machine runs. A 64-bit process reaches them
// with int $0x80 and with the x32 bit in a call's number.

constexpr unsigned kNoAddress32 = 1;
constexpr unsigned kNothing32 = -1U;
constexpr long kX32 = 0x4000'0000;

/// The call's own number on that architecture's table. Asks by number, because by name libseccomp
/// returns a substitute for a call that shares a number with others.
long numberOf(const std::string& name, std::uint32_t architecture) {
    if (name == kNewSystemCalls[0].name) {
        return kOpenTreeAttr;  // libseccomp may be older
    }
    const long begin = architecture == SCMP_ARCH_X32 ? kX32 : 0;
    for (long number = begin; number < begin + 1'000; ++number) {
        const std::unique_ptr<char, void (*)(void*)> known(
            seccomp_syscall_resolve_num_arch(architecture, static_cast<int>(number)), std::free);
        if (known && name == known.get()) {
            return number;
        }
    }
    require(false);
    return -1;
}

/// Makes the 32-bit call. Returns 0 or its errno.
int answer32(const char* name, unsigned first = 0, unsigned second = 0, unsigned third = 0) {
    int result = static_cast<int>(numberOf(name, SCMP_ARCH_X86));
    asm volatile("int $0x80"
                 : "+a"(result)
                 : "b"(first), "c"(second), "d"(third), "S"(0), "D"(0)
                 : "memory", "r8", "r9", "r10", "r11");
    return result < 0 ? -result : 0;
}

/// True when the kernel is configured to run 32-bit programs.
bool runs32() {
    return unfiltered([] { return answer32("getppid"); }) == 0;
}

class Denial32 : public testing::TestWithParam<Denied> {};

TEST_P(Denial32, IsTheFiltersAnswer) {
    if (!runs32()) {
        GTEST_SKIP() << "this kernel runs no 32-bit programs";
    }
    EXPECT_NE(unfiltered(GetParam().call), EPERM);
    EXPECT_EQ(underRules(defaultSystemCallRules(), GetParam().call), EPERM);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, Denial32,
    testing::Values(
        Denied{"mount", [] { return answer32("mount", 0, kNoAddress32, kNoAddress32); }},
        Denied{"umount", [] { return answer32("umount", kNoAddress32); }},
        Denied{"umount2", [] { return answer32("umount2", kNoAddress32, kNothing32); }},
        Denied{"stime", [] { return answer32("stime", kNoAddress32); }},
        Denied{"setns", [] { return answer32("setns", kNothing32); }},
        Denied{"clock_settime64",
               [] { return answer32("clock_settime64", kNothing32, kNoAddress32); }},
        Denied{"unshare", [] { return answer32("unshare", CLONE_NEWUSER | 1); }},
        Denied{"clone", [] { return answer32("clone", CLONE_NEWUSER | CLONE_FS | SIGCHLD); }},
        Denied{"TIOCSTI", [] { return answer32("ioctl", kNothing32, TIOCSTI); }},
        Denied{"TIOCLINUX", [] { return answer32("ioctl", kNothing32, 0x541c); }},
        Denied{"personality", [] { return answer32("personality", 0x40000); }},
        Denied{"TIOCSETD", [] { return answer32("ioctl", kNothing32, TIOCSETD); }},
        Denied{"PIDFD_GET_INFO", [] { return answer32("ioctl", kNothing32, 0xc040ff0b); }},
        Denied{"open_tree_attr",
               [] { return answer32("open_tree_attr", kNothing32, kNoAddress32); }},
        Denied{"socket: AF_VSOCK", [] { return answer32("socket", AF_VSOCK, kNothing32); }}));

TEST(DefaultFilter32, LeavesOrdinaryCallsAlone) {
    if (!runs32()) {
        GTEST_SKIP() << "this kernel runs no 32-bit programs";
    }
    const auto under = [](const std::function<int()>& call) {
        return underRules(defaultSystemCallRules(), call);
    };
    EXPECT_EQ(under([] { return answer32("getppid"); }), 0);
    EXPECT_EQ(under([] { return answer32("unshare", CLONE_NEWNS | 1); }), EINVAL);
    EXPECT_EQ(under([] { return answer32("ioctl", kNothing32, TIOCGWINSZ); }), EBADF);
    EXPECT_EQ(under([] { return answer32("personality", kNothing32); }), 0);
    EXPECT_EQ(under([] { return answer32("personality", 0x20008); }), 0);
    EXPECT_EQ(under([] { return answer32("clone3"); }), ENOSYS);
}

// a 32-bit program has two ways to a socket
TEST(SystemCallFilter32, DeniesACallThatSharesANumber) {
    if (!runs32()) {
        GTEST_SKIP() << "this kernel runs no 32-bit programs";
    }
    const std::map<std::string, Answer> rules = {{"socket", Answer::Deny}};
    const auto direct = [] { return answer32("socket", kNothing32); };
    const auto behind = [] { return answer32("socketcall", 1, kNoAddress32); };
    EXPECT_NE(unfiltered(direct), EPERM);
    EXPECT_NE(unfiltered(behind), EPERM);
    EXPECT_EQ(underAnswers(rules, direct), EPERM);
    EXPECT_EQ(underAnswers(rules, behind), EPERM);
}

// programs for older kernels create all their sockets in this way
TEST(DefaultFilter32, AllowsSocketsThroughASharedNumber) {
    if (!runs32()) {
        GTEST_SKIP() << "this kernel runs no 32-bit programs";
    }
    const auto call = [] { return answer32("socketcall", 1, kNoAddress32); };
    EXPECT_EQ(underRules(defaultSystemCallRules(), call), EFAULT);
    EXPECT_EQ(underRules(defaultSystemCallRules(),
                         [] { return answer32("socket", AF_INET, kNothing32); }),
              EINVAL);
}

TEST(DeniedTable32, EndsTheProcessAtAnyCallAndAllowsOtherTables) {
    if (!runs32()) {
        GTEST_SKIP() << "this kernel runs no 32-bit programs";
    }
    const SystemCallRules rules = {.calls = {}, .deniedTables = {"i386"}};
    EXPECT_EQ(underRules(rules, [] { return answer32("getppid"); }), -SIGSYS);
    EXPECT_EQ(underRules(rules, [] { return answer32("mount"); }), -SIGSYS);
    EXPECT_EQ(underRules(rules, [] { return answerOf(SYS_getppid); }), 0);
}

/// The answer of a kernel with x32, without a filter.
constexpr unsigned kAnswerOfX32 = EXDEV;

/// An x32 call under the rules. A kernel without x32 gives the same answer as the filter. So a
/// second filter gives another answer in the kernel's place; any answer of the tested filter takes
/// precedence over it.
int answerX32(const SystemCallRules& rules, long number, unsigned long first = 0,
              unsigned long second = 0) {
    return outcome(inChild([&] {
        dropPrivileges();
        denySystemCall(kX32 | number, kAnswerOfX32);
        installSystemCallFilter(rules);
        return answerOf(kX32 | number, first, second, 0, 0, 0);
    }));
}

TEST(DefaultFilterX32, AnswersAllCallsLikeAKernelWithoutThem) {
    const SystemCallRules rules = defaultSystemCallRules();
    for (const long number :
         {0L, static_cast<long>(SYS_getppid), static_cast<long>(SYS_mount),
          static_cast<long>(SYS_socket), numberOf("ioctl", SCMP_ARCH_X32) & ~kX32,
          static_cast<long>(kOpenTreeAttr), 0x3fff'ffffL}) {
        EXPECT_EQ(answerX32(rules, number), ENOSYS) << number;
    }
    EXPECT_EQ(underRules(rules, [] { return answerOf(SYS_getppid); }), 0);
}

// a tracer cancels a call with this number and sets the result itself
TEST(DefaultFilterX32, LeavesTheNumberOfNoCallToTracers) {
    const auto call = [] {
        denySystemCall(-1, EXDEV);
        installSystemCallFilter(defaultSystemCallRules());
        return answerOf(-1);
    };
    EXPECT_EQ(unfiltered(call), EXDEV);
}

TEST(OpenTableX32, IsUnderTheSameRules) {
    SystemCallRules rules = defaultSystemCallRules();
    rules.deniedTables.clear();
    const long ioctl = numberOf("ioctl", SCMP_ARCH_X32) & ~kX32;  // it has its own number
    EXPECT_EQ(answerX32(rules, SYS_mount), EPERM);
    EXPECT_EQ(answerX32(rules, SYS_setns), EPERM);
    EXPECT_EQ(answerX32(rules, SYS_clone, CLONE_NEWUSER | CLONE_FS | SIGCHLD), EPERM);
    EXPECT_EQ(answerX32(rules, SYS_unshare, CLONE_NEWUSER | 1), EPERM);
    EXPECT_EQ(answerX32(rules, SYS_personality, 0x40000), EPERM);
    EXPECT_EQ(answerX32(rules, SYS_socket, AF_VSOCK), EPERM);
    EXPECT_EQ(answerX32(rules, ioctl, kNothing, TIOCSTI), EPERM);
    EXPECT_EQ(answerX32(rules, ioctl, kNothing, 0xc040ff0b), EPERM);
    EXPECT_EQ(answerX32(rules, kOpenTreeAttr), EPERM);
    EXPECT_EQ(answerX32(rules, SYS_clone3), ENOSYS);

    EXPECT_EQ(answerX32(rules, SYS_getppid), kAnswerOfX32);
    EXPECT_EQ(answerX32(rules, SYS_clone, SIGCHLD), kAnswerOfX32);
    EXPECT_EQ(answerX32(rules, SYS_personality, 0x20008), kAnswerOfX32);
    EXPECT_EQ(answerX32(rules, SYS_socket, AF_INET), kAnswerOfX32);
    EXPECT_EQ(answerX32(rules, ioctl, kNothing, TIOCGWINSZ), kAnswerOfX32);
}

#endif

}  // namespace
