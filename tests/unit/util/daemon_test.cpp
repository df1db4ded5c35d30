#include "util/daemon.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "child_process.h"
#include "util/external_command.h"

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

TEST(DaemonCleanEnv, AcceptsAMissingEnvironment) {
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

TEST(DaemonForgetCaller, LeavesNothingOpenWhenNothingIsClosed) {
    const auto result = inChild([] {
        const int before = ::dup(0);
        ::close(before);
        Daemon::forgetCaller();
        return ::dup(0) == before ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonForgetCaller, WaitsForChildrenAgainAndSurvivesBrokenPipes) {
    const auto result = inChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        Daemon::forgetCaller();
        const bool child = std::signal(SIGCHLD, SIG_DFL) == SIG_DFL;
        const bool pipe = std::signal(SIGPIPE, SIG_DFL) == SIG_IGN;
        return child && pipe ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

constexpr uid_t kUser = 64'123;
constexpr gid_t kGroup = 64'124;

bool isRoot() {
    return ::geteuid() == 0;
}

/// Makes root an ordinary user; an ordinary user stays the same.
bool becomeOrdinary() {
    return !isRoot() || (::setgroups(0, nullptr) == 0 && ::setresgid(kGroup, kGroup, kGroup) == 0 &&
                         ::setresuid(kUser, kUser, kUser) == 0);
}

std::string ids() {
    std::array<uid_t, 3> users{};
    std::array<gid_t, 3> groups{};
    ::getresuid(users.data(), &users[1], &users[2]);
    ::getresgid(groups.data(), &groups[1], &groups[2]);
    std::string text;
    for (const uid_t id : users) {
        text += std::to_string(id) + " ";
    }
    for (const gid_t id : groups) {
        text += std::to_string(id) + " ";
    }
    return text;
}

TEST(DaemonChangeUser, OfAnOrdinaryUserFailsAndChangesNothing) {
    const auto result = inChild([] {
        if (!becomeOrdinary()) {
            return 2;
        }
        const std::string before = ids();
        errno = 0;
        const bool changed = Daemon::changeUser(true, kUser + 5, kGroup + 5);
        const int error = errno;
        return !changed && error == EPERM && ids() == before ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, OfAnOrdinaryUserToRootFailsWithoutTheGroupsToo) {
    const auto result = inChild([] {
        if (!becomeOrdinary()) {
            return 2;
        }
        errno = 0;
        const bool changed = Daemon::changeUser(false, 0, 0);
        return !changed && errno == EPERM ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, OfAnOrdinaryUserToItselfHoldsWithoutTheGroups) {
    const auto result = inChild([] {
        if (!becomeOrdinary()) {
            return 2;
        }
        return Daemon::changeUser(false, ::getuid(), ::getgid()) ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

// to setresuid(2) the highest number means "no change": the call succeeds, root stays root
TEST(DaemonChangeUser, RefusesTheUserIdThatMeansNoChange) {
    const auto result = inChild([] {
        errno = 0;
        return !Daemon::changeUser(true, 4'294'967'295U, kGroup) && errno == EINVAL ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, RefusesTheGroupIdThatMeansNoChange) {
    const auto result = inChild([] {
        errno = 0;
        const bool changed = Daemon::changeUser(true, kUser, 4'294'967'295U);
        return !changed && errno == EINVAL ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, RefusesTheGroupIdThatMeansNoChangeWithoutTheGroups) {
    const auto result = inChild([] {
        errno = 0;
        const bool changed = Daemon::changeUser(false, ::getuid(), 4'294'967'295U);
        return !changed && errno == EINVAL ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, ReplacesTheGroupsOfRootEvenWhenTheIdsStay) {
    const auto result = inChild([] {
        const std::vector<gid_t> many = {0, 4, 24, 27, 64'300};
        const bool root = isRoot() && ::setgroups(many.size(), many.data()) == 0;
        const bool changed = Daemon::changeUser(true, ::getuid(), ::getgid());
        if (!root) {
            return changed ? 1 : 0;
        }
        std::array<gid_t, 8> groups{};
        const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
        return changed && count == 1 && groups[0] == ::getgid() ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, TakesTheSavedIdsAwayToo) {
    const auto result = inChild([] {
        // with a saved user ID of root the process could become root again
        if (isRoot() && ::setresuid(0, 0, 0) != 0) {
            return 2;
        }
        const bool changed = Daemon::changeUser(true, kUser, kGroup);
        const bool back = ::seteuid(0) == 0 || ::setegid(0) == 0;
        return isRoot() || back ? 1 : (changed ? 3 : 0);
    });
    // 3: root changed for good; 0: an ordinary user could not change and gained nothing
    EXPECT_EQ(outcome(result), isRoot() ? 3 : 0);
}

// capabilities(7): with this bit the capabilities survive the change of user, and with them root
TEST(DaemonChangeUser, FailsWhenTheProcessCouldBecomeRootAgain) {
    const auto result = inChild([] {
        if (isRoot() && ::prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP) != 0) {
            return 2;
        }
        errno = 0;
        return !Daemon::changeUser(true, kUser, kGroup) && errno == EPERM ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

class MissingStreams : public testing::TestWithParam<std::vector<int>> {};

TEST_P(MissingStreams, CanBeReadWrittenAndInherited) {
    const auto result = inChild([] {
        for (const int stream : GetParam()) {
            ::close(stream);
        }
        Daemon::forgetCaller();
        char byte = 'x';
        for (const int stream : GetParam()) {
            if (!isNullDevice(stream) || ::write(stream, &byte, 1) != 1 ||
                ::read(stream, &byte, 1) != 0 || ::fcntl(stream, F_GETFD) != 0) {
                return 1;
            }
        }
        return 0;
    });
    EXPECT_EQ(outcome(result), 0);
}

INSTANTIATE_TEST_SUITE_P(Sets, MissingStreams,
                         testing::Values(std::vector{0}, std::vector{1}, std::vector{2},
                                         std::vector{0, 1}, std::vector{0, 2}, std::vector{1, 2},
                                         std::vector{0, 1, 2}));

TEST(DaemonForgetCaller, LeavesStreamsThatAreOpenAlone) {
    const auto result = inChild([] {
        ::close(STDIN_FILENO);
        ::close(STDERR_FILENO);
        Daemon::forgetCaller();
        const bool written = ::write(STDOUT_FILENO, "kept", 4) == 4;
        return written && isNullDevice(STDIN_FILENO) && isNullDevice(STDERR_FILENO) ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "kept");
}

TEST(DaemonForgetCaller, ReturnsWhenNothingCanBeOpened) {
    const auto result = inChild([] {
        const rlimit none = {0, 0};
        ::close(STDIN_FILENO);
        ::setrlimit(RLIMIT_NOFILE, &none);
        ::alarm(10);  // an endless loop ends the child
        Daemon::forgetCaller();
        return std::signal(SIGPIPE, SIG_DFL) == SIG_IGN ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonForgetCaller, MakesAWriteToAClosedPipeAnError) {
    const auto result = inChild([] {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0) {
            return 2;
        }
        ::close(ends[0]);
        std::signal(SIGPIPE, SIG_DFL);
        Daemon::forgetCaller();
        return ::write(ends[1], "x", 1) == -1 && errno == EPIPE ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonForgetCaller, ShowsAFailingToolThatAnIgnoredSignalWouldHide) {
    const auto result = inChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        Daemon::forgetCaller();
        std::string errors;
        ExternalCommand command("sh", {"-c", "exit 3"});
        command.setStderr(&errors);
        return command.execute();
    });
    EXPECT_EQ(outcome(result), 3);
}

/// The environment that a tool gets when only the names in `keep` are kept, sorted.
std::string leftOf(std::vector<std::string> environment, const std::vector<std::string>& keep) {
    return inChild([&environment, &keep] {
               ::clearenv();
               for (std::string& entry : environment) {
                   ::putenv(entry.data());
               }
               Daemon::cleanEnv(keep);
               return ExternalCommand("/usr/bin/env", {}).execute();
           })
        .output;
}

TEST(DaemonCleanEnv, LeavesToolsTheFourVariables) {
    EXPECT_EQ(leftOf({"HOME=/root", "PATH=/usr/bin:/bin", "IFS= ", "BASH_ENV=/tmp/x"},
                     {"PATH", "TERM", "LANG", "TZ"}),
              "PATH=/usr/bin:/bin\n");
    EXPECT_EQ(leftOf({"A=1", "TERM=xterm"}, {"PATH", "TERM", "LANG", "TZ"}), "TERM=xterm\n");
    EXPECT_EQ(leftOf({"LANG=de_DE.UTF-8", "LANGUAGE=de"}, {"PATH", "TERM", "LANG", "TZ"}),
              "LANG=de_DE.UTF-8\n");
    EXPECT_EQ(leftOf({"TZ=Europe/Berlin", "tz=x"}, {"PATH", "TERM", "LANG", "TZ"}),
              "TZ=Europe/Berlin\n");
}

TEST(DaemonCleanEnv, LeavesNothingWhenNothingIsKept) {
    EXPECT_EQ(leftOf({"PATH=/bin", "TERM=xterm"}, {}), "");
}

TEST(DaemonCleanEnv, DistinguishesNamesThatBeginAlike) {
    EXPECT_EQ(leftOf({"TER=1", "TERM2=2", "TERM=3", "XTERM=4", "term=5"}, {"TERM"}), "TERM=3\n");
}

TEST(DaemonCleanEnv, DoesNotAddAVariable) {
    EXPECT_EQ(leftOf({"A=1"}, {"TERM", "A"}), "A=1\n");
}

TEST(DaemonCleanEnv, KeepsLongValues) {
    const std::string value(100'000, 'v');
    EXPECT_EQ(leftOf({"TERM=" + value, "A=1"}, {"TERM"}), "TERM=" + value + "\n");
}

}  // namespace
