#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <vector>

#include "child_process.h"
#include "util/daemon.h"
#include "util/external_command.h"

namespace {

bool isOnNullDevice(int descriptor) {
    struct stat wanted {};
    struct stat found {};
    return ::stat("/dev/null", &wanted) == 0 && ::fstat(descriptor, &found) == 0 &&
           wanted.st_rdev == found.st_rdev;
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
            if (!isOnNullDevice(stream) || ::write(stream, &byte, 1) != 1 ||
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
        return written && isOnNullDevice(STDIN_FILENO) && isOnNullDevice(STDERR_FILENO) ? 0 : 1;
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

TEST(DaemonForgetCaller, LetsAFailingToolBeSeenThatAnIgnoredSignalWouldHide) {
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

/// What a tool sees of `environment` once only the names in `keep` are left, sorted.
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

TEST(DaemonCleanEnv, TellsNamesApartThatBeginAlike) {
    EXPECT_EQ(leftOf({"TER=1", "TERM2=2", "TERM=3", "XTERM=4", "term=5"}, {"TERM"}), "TERM=3\n");
}

TEST(DaemonCleanEnv, DoesNotInventAVariable) {
    EXPECT_EQ(leftOf({"A=1"}, {"TERM", "A"}), "A=1\n");
}

TEST(DaemonCleanEnv, KeepsLongValues) {
    const std::string value(100'000, 'v');
    EXPECT_EQ(leftOf({"TERM=" + value, "A=1"}, {"TERM"}), "TERM=" + value + "\n");
}

}  // namespace
