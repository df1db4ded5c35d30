#include "util/daemon.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "child_process.h"

namespace {

void printEnvironment() {
    std::vector<std::string> entries;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        entries.emplace_back(*entry);
    }
    std::sort(entries.begin(), entries.end());
    for (const std::string& entry : entries) {
        std::cout << entry << "\n";
    }
}

TEST(DaemonCleanEnv, KeepsTheNamedVariablesAndTheirValues) {
    const auto result = inChild([] {
        char path[] = "PATH=/bin";
        char zone[] = "TZ=";
        char longer[] = "PATHS=/x";
        char preload[] = "LD_PRELOAD=x.so";
        char nameless[] = "nothing";
        char second[] = "LANG=a=b";
        std::array<char*, 7> variables = {path, preload, longer, zone, nameless, second, nullptr};
        environ = variables.data();
        Daemon::cleanEnv({"PATH", "TERM", "LANG", "TZ"});
        printEnvironment();
        return 0;
    });
    EXPECT_EQ(result.output, "LANG=a=b\nPATH=/bin\nTZ=\n");
}

TEST(DaemonCleanEnv, KeepsTheFirstOfTwoValues) {
    const auto result = inChild([] {
        char first[] = "PATH=/bin";
        char second[] = "PATH=/evil";
        std::array<char*, 3> variables = {first, second, nullptr};
        environ = variables.data();
        Daemon::cleanEnv({"PATH"});
        printEnvironment();
        return 0;
    });
    EXPECT_EQ(result.output, "PATH=/bin\n");
}

TEST(DaemonCleanEnv, SurvivesAnEnvironmentThatIsNotThere) {
    const auto result = inChild([] {
        ::clearenv();
        Daemon::cleanEnv({"PATH"});
        return ::getenv("PATH") == nullptr ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, ReplacesAllIdsAndGroupsOrFailsWithAnErrno) {
    const auto result = inChild([] {
        const bool root = ::geteuid() == 0;
        errno = 0;
        const bool changed = Daemon::changeUser(true, 64'123, 64'124);
        if (!root) {
            return !changed && errno == EPERM ? 0 : 1;
        }
        std::array<gid_t, 8> groups{};
        const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
        uid_t real = 0;
        uid_t effective = 0;
        uid_t saved = 0;
        ::getresuid(&real, &effective, &saved);
        const bool users = real == 64'123 && effective == 64'123 && saved == 64'123;
        gid_t realGroup = 0;
        gid_t effectiveGroup = 0;
        gid_t savedGroup = 0;
        ::getresgid(&realGroup, &effectiveGroup, &savedGroup);
        const bool own = realGroup == 64'124 && effectiveGroup == 64'124 && savedGroup == 64'124;
        return changed && users && own && count == 1 && groups[0] == 64'124 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, LeavesNoWayBack) {
    const auto result = inChild([] {
        Daemon::changeUser(true, 64'123, 64'124);
        return Daemon::changeUser(true, 0, 0) ? 1 : 0;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, KeepsSupplementaryGroupsWhenAsked) {
    const auto result = inChild([] {
        const gid_t extra = 64'200;
        if (::geteuid() != 0 || ::setgroups(1, &extra) != 0) {
            return Daemon::changeUser(false, 64'123, 64'124) ? 1 : 0;
        }
        std::array<gid_t, 8> groups{};
        const bool changed = Daemon::changeUser(false, 64'123, 64'124);
        const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
        return changed && count == 1 && groups[0] == extra ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

bool isNullDevice(int descriptor) {
    struct stat wanted {};
    struct stat found {};
    return ::stat("/dev/null", &wanted) == 0 && ::fstat(descriptor, &found) == 0 &&
           wanted.st_rdev == found.st_rdev;
}

class ClosedDescriptors : public testing::TestWithParam<std::vector<int>> {};

TEST_P(ClosedDescriptors, AreOpenedOnTheNullDevice) {
    const auto result = inChild([] {
        for (const int descriptor : GetParam()) {
            ::close(descriptor);
        }
        Daemon::forgetCaller();
        for (const int descriptor : GetParam()) {
            if (!isNullDevice(descriptor)) {
                return 1;
            }
        }
        return ::open("/dev/null", O_RDONLY) > 2 ? 0 : 2;
    });
    EXPECT_EQ(outcome(result), 0);
}

INSTANTIATE_TEST_SUITE_P(Sets, ClosedDescriptors,
                         testing::Values(std::vector{0}, std::vector{1}, std::vector{2},
                                         std::vector{0, 2}, std::vector{0, 1, 2}));

TEST(DaemonForgetCaller, OpensNothingThatStaysWhenNothingIsClosed) {
    const auto result = inChild([] {
        const int before = ::dup(0);
        ::close(before);
        Daemon::forgetCaller();
        return ::dup(0) == before ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonForgetCaller, WaitsForChildrenAgainAndOutlivesBrokenPipes) {
    const auto result = inChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        Daemon::forgetCaller();
        const bool child = std::signal(SIGCHLD, SIG_DFL) == SIG_DFL;
        const bool pipe = std::signal(SIGPIPE, SIG_DFL) == SIG_IGN;
        return child && pipe ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

}  // namespace
