#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <iostream>
#include <ostream>
#include <string>
#include <thread>

#include "../util/failure_of.h"
#include "filtered_process.h"

namespace {

/// An address that the kernel refuses to read: the call ends there at the latest.
constexpr unsigned long kNoAddress = 1;
constexpr unsigned long kNothing = -1UL;  ///< as a descriptor or a command
constexpr unsigned long kUpperHalf = 0xabcd'ef01'0000'0000;

TEST(SystemCallFilter, AnswersADeniedCallWithEperm) {
    const auto call = [] { return answerOf(SYS_getppid); };
    EXPECT_EQ(underRules({}, call), 0);
    EXPECT_EQ(underRules({{"getppid", Answer::Deny}}, call), EPERM);
}

TEST(SystemCallFilter, EndsTheProcessAtAKilledCall) {
    EXPECT_EQ(underRules({{"getppid", Answer::Kill}}, [] { return answerOf(SYS_getppid); }),
              -SIGSYS);
}

TEST(SystemCallFilter, EndsTheWholeProcessWhenAThreadMakesAKilledCall) {
    EXPECT_EQ(underRules({{"getppid", Answer::Kill}},
                         [] {
                             std::thread([] { answerOf(SYS_getppid); }).join();
                             return 0;
                         }),
              -SIGSYS);
}

TEST(SystemCallFilter, AnswersACallThatIsToBeMissingWithEnosys) {
    EXPECT_EQ(underRules({{"getppid", Answer::Missing}}, [] { return answerOf(SYS_getppid); }),
              ENOSYS);
}

TEST(SystemCallFilter, LeavesOtherCallsAlone) {
    const SystemCallRules rules = {{"getppid", Answer::Deny}, {"getpgid", Answer::Kill}};
    EXPECT_EQ(underRules(rules, [] { return answerOf(SYS_getpid); }), 0);
    EXPECT_EQ(underRules(rules, [] { return answerOf(SYS_close, kNothing); }), EBADF);
}

TEST(SystemCallFilter, HoldsInChildrenAndThreads) {
    const SystemCallRules rules = {{"getppid", Answer::Deny}};
    EXPECT_EQ(underRules(rules,
                         [] {
                             int answer = 0;
                             std::thread([&answer] { answer = answerOf(SYS_getppid); }).join();
                             return answer;
                         }),
              EPERM);
    EXPECT_EQ(underRules(rules,
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

TEST(SystemCallFilter, PassesOverNamesThatTheArchitectureDoesNotHave) {
    const SystemCallRules rules = {{"stime", Answer::Deny},
                                   {"iopl", Answer::Kill},
                                   {"umount", Answer::Deny},
                                   {"clock_settime64", Answer::Deny},
                                   {"pciconfig_iobase", Answer::Deny},
                                   {"getppid", Answer::Deny}};
    EXPECT_EQ(underRules(rules, [] { return answerOf(SYS_getppid); }), EPERM);
}

// no_new_privs would take the mail and cron helpers' group away
TEST(SystemCallFilter, LeavesNoNewPrivilegesUnset) {
    const auto result = inChild([] {
        failureOf([] { installSystemCallFilter({{"getppid", Answer::Deny}}); });
        return ::prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0);
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(SystemCallFilter, SaysWhyTheKernelRefusedIt) {
    const auto result = inChild([] {
        dropPrivileges();
        std::cout << failureOf([] { installSystemCallFilter({{"getppid", Answer::Deny}}); });
        return answerOf(SYS_getppid);
    });
    EXPECT_EQ(result.output, "system-call filter: seccomp(): Permission denied");
    EXPECT_EQ(outcome(result), 0);
}

/// A call with arguments for which the kernel has another answer than EPERM, whoever asks.
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
               [] { return answerOf(SYS_ioctl, kNothing, 0x541c | kUpperHalf, 0); }}));

TEST(DefaultFilter, SendsTheCLibraryToTheOlderClone) {
    const auto call = [] { return answerOf(SYS_clone3, 0, 0); };
    EXPECT_EQ(unfiltered(call), EINVAL);
    EXPECT_EQ(underRules(defaultSystemCallRules(), call), ENOSYS);
}

TEST(DefaultFilter, LetsProcessesAndThreadsBeMade) {
    EXPECT_EQ(underRules(defaultSystemCallRules(),
                         [] {
                             int answer = 1;
                             std::thread([&answer] { answer = 0; }).join();
                             return answer == 0 ? ::system("exit 7") >> 8 : 1;
                         }),
              7);
}

TEST(DefaultFilter, LetsOtherNamespacesBeAskedForAsTheKernelAllows) {
    // the kernel's answer to an unknown flag
    EXPECT_EQ(
        underRules(defaultSystemCallRules(), [] { return answerOf(SYS_unshare, CLONE_NEWNS | 1); }),
        EINVAL);
    EXPECT_EQ(underRules(defaultSystemCallRules(), [] { return answerOf(SYS_unshare, 0); }), 0);
}

TEST(DefaultFilter, LetsOtherRequestsReachTerminals) {
    for (const int request : {TCGETS, TIOCGWINSZ, TIOCSWINSZ, TIOCSCTTY, TIOCSPGRP, TIOCSTI - 1,
                              TIOCSTI + 1, 0x541b, 0x541d}) {
        EXPECT_EQ(underRules(defaultSystemCallRules(),
                             [request] { return answerOf(SYS_ioctl, kNothing, request, 0); }),
                  EBADF)
            << std::hex << request;
    }
}

/// The values of personality(2) among `asked` that are not answered with EPERM, as hexadecimal.
std::string harmless(const std::vector<unsigned long>& asked) {
    const auto result = inChild([&asked] {
        dropPrivileges();
        require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
        installSystemCallFilter(defaultSystemCallRules());
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

TEST(DefaultFilter, LetsAPersonalityChangeWhatUnameSaysAndBeAskedFor) {
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

}  // namespace
