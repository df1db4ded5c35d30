// The filter on the other architectures whose programs an x86-64 machine runs: a 64-bit process
// reaches them with int $0x80 and with the x32 bit in a call's number.
#include <gtest/gtest.h>

#ifdef __x86_64__

#include <asm/ioctls.h>
#include <sched.h>
#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <functional>
#include <ostream>

#include "filtered_process.h"

namespace {

constexpr unsigned kNoAddress = 1;
constexpr unsigned kNothing = -1U;
constexpr long kX32 = 0x4000'0000;

// numbers of <asm/unistd_32.h>, which cannot stand beside those of this architecture
namespace i386 {
constexpr int kMount = 21;
constexpr int kUmount = 22;
constexpr int kStime = 25;
constexpr int kUmount2 = 52;
constexpr int kIoctl = 54;
constexpr int kGetppid = 64;
constexpr int kSocketcall = 102;
constexpr int kClone = 120;
constexpr int kPersonality = 136;
constexpr int kUnshare = 310;
constexpr int kSetns = 346;
constexpr int kSocket = 359;
constexpr int kClockSettime64 = 404;
constexpr int kClone3 = 435;
}  // namespace i386

/// The 32-bit call: 0 or its errno.
int answer32(int number, unsigned first = 0, unsigned second = 0, unsigned third = 0) {
    int result = number;
    asm volatile("int $0x80"
                 : "+a"(result)
                 : "b"(first), "c"(second), "d"(third), "S"(0), "D"(0)
                 : "memory", "r8", "r9", "r10", "r11");
    return result < 0 ? -result : 0;
}

/// 32-bit programs are a setting of the kernel.
bool runs32() {
    return unfiltered([] { return answer32(i386::kGetppid); }) == 0;
}

struct Denied {
    const char* name;
    std::function<int()> call;
};

std::ostream& operator<<(std::ostream& stream, const Denied& denied) {
    return stream << denied.name;
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
        Denied{"mount", [] { return answer32(i386::kMount, 0, kNoAddress, kNoAddress); }},
        Denied{"umount", [] { return answer32(i386::kUmount, kNoAddress); }},
        Denied{"umount2", [] { return answer32(i386::kUmount2, kNoAddress, kNothing); }},
        Denied{"stime", [] { return answer32(i386::kStime, kNoAddress); }},
        Denied{"setns", [] { return answer32(i386::kSetns, kNothing); }},
        Denied{"clock_settime64",
               [] { return answer32(i386::kClockSettime64, kNothing, kNoAddress); }},
        Denied{"unshare", [] { return answer32(i386::kUnshare, CLONE_NEWUSER | 1); }},
        Denied{"clone", [] { return answer32(i386::kClone, CLONE_NEWUSER | CLONE_FS | SIGCHLD); }},
        Denied{"TIOCSTI", [] { return answer32(i386::kIoctl, kNothing, TIOCSTI); }},
        Denied{"TIOCLINUX", [] { return answer32(i386::kIoctl, kNothing, 0x541c); }},
        Denied{"personality", [] { return answer32(i386::kPersonality, 0x40000); }}));

TEST(DefaultFilter32, LeavesOrdinaryCallsAlone) {
    if (!runs32()) {
        GTEST_SKIP() << "this kernel runs no 32-bit programs";
    }
    const auto under = [](const std::function<int()>& call) {
        return underRules(defaultSystemCallRules(), call);
    };
    EXPECT_EQ(under([] { return answer32(i386::kGetppid); }), 0);
    EXPECT_EQ(under([] { return answer32(i386::kUnshare, CLONE_NEWNS | 1); }), EINVAL);
    EXPECT_EQ(under([] { return answer32(i386::kIoctl, kNothing, TIOCGWINSZ); }), EBADF);
    EXPECT_EQ(under([] { return answer32(i386::kPersonality, kNothing); }), 0);
    EXPECT_EQ(under([] { return answer32(i386::kPersonality, 0x20008); }), 0);
    EXPECT_EQ(under([] { return answer32(i386::kClone3); }), ENOSYS);
}

// a 32-bit program has two ways to a socket
TEST(SystemCallFilter32, DeniesACallThatIsOneOfSeveralBehindANumber) {
    if (!runs32()) {
        GTEST_SKIP() << "this kernel runs no 32-bit programs";
    }
    const SystemCallRules rules = {{"socket", Answer::Deny}};
    const auto direct = [] { return answer32(i386::kSocket, kNothing); };
    const auto behind = [] { return answer32(i386::kSocketcall, 1, kNoAddress); };
    EXPECT_NE(unfiltered(direct), EPERM);
    EXPECT_NE(unfiltered(behind), EPERM);
    EXPECT_EQ(underRules(rules, direct), EPERM);
    EXPECT_EQ(underRules(rules, behind), EPERM);
}

TEST(DefaultFilterX32, DeniesWhetherTheKernelRunsSuchProgramsOrNot) {
    const std::function<int()> calls[] = {
        [] { return answerOf(kX32 | SYS_mount, 0, kNoAddress, kNoAddress, 0, 0); },
        [] { return answerOf(kX32 | SYS_setns, kNothing, 0); },
        [] { return answerOf(kX32 | SYS_clone, CLONE_NEWUSER | CLONE_FS | SIGCHLD, 0, 0, 0, 0); },
        [] { return answerOf(kX32 | SYS_unshare, CLONE_NEWUSER | 1); },
        [] { return answerOf(kX32 | SYS_personality, 0x40000); },
        [] { return answerOf(kX32 | 514, kNothing, TIOCSTI, 0); },  // ioctl has a number of its own
    };
    for (const auto& call : calls) {
        EXPECT_NE(unfiltered(call), EPERM);
        EXPECT_EQ(underRules(defaultSystemCallRules(), call), EPERM);
    }
}

TEST(DefaultFilterX32, LeavesOrdinaryCallsToTheKernel) {
    const auto call = [] { return answerOf(kX32 | SYS_getppid); };
    EXPECT_EQ(underRules(defaultSystemCallRules(), call), unfiltered(call));
}

}  // namespace

#endif
