#include "util/external_command.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "child_process.h"
#include "util/directory_stream.h"

namespace {

ExternalCommand shell(const std::string& script) {
    return ExternalCommand("sh", {"-c", script});
}

std::string standardErrorOf(const std::function<void()>& action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

TEST(ExternalCommand, ReturnsTheExitStatus) {
    EXPECT_EQ(shell("exit 0").execute(), 0);
    const std::string report = standardErrorOf([] {
        EXPECT_EQ(shell("exit 7").execute(), 7);
        EXPECT_EQ(shell("exit 255").execute(), 255);
    });
    EXPECT_EQ(report, "exit code 7: sh -c exit 7\nexit code 255: sh -c exit 255\n");
}

TEST(ExternalCommand, ReturnsMinusTheSignalThatKilledTheChild) {
    const std::string report =
        standardErrorOf([] { EXPECT_EQ(shell("kill -TERM $$").execute(), -SIGTERM); });
    EXPECT_EQ(report, "signal 15: sh -c kill -TERM $$\n");
}

TEST(ExternalCommand, ReportsASignalAlsoWhenStandardErrorIsCaptured) {
    std::string errors;
    const std::string report = standardErrorOf([&errors] {
        auto command = shell("kill -KILL $$");
        command.setStderr(&errors);
        EXPECT_EQ(command.execute(), -SIGKILL);
    });
    EXPECT_EQ(report, "signal 9: sh -c kill -KILL $$\n");
}

TEST(ExternalCommand, CapturesBothStreamsApart) {
    std::string output;
    std::string errors;
    auto command = shell("echo out; echo err >&2");
    command.setStdout(&output);
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output, "out\n");
    EXPECT_EQ(errors, "err\n");
}

TEST(ExternalCommand, AppendsToWhatTheTargetHolds) {
    std::string output = "before ";
    auto command = shell("printf after");
    command.setStdout(&output);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output, "before after");
}

TEST(ExternalCommand, CapturesMoreThanAPipeHolds) {
    std::string output;
    auto command = shell("head -c 300000 /dev/zero | tr '\\0' x");
    command.setStdout(&output);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output, std::string(300'000, 'x'));
}

TEST(ExternalCommand, CapturesAMegabyteOfStandardErrorThatComesFirst) {
    std::string output;
    std::string errors;
    auto command =
        shell("timeout 10 sh -c 'head -c 1000000 /dev/zero | tr \"\\0\" x >&2; echo out'");
    command.setStdout(&output);
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output, "out\n");
    EXPECT_EQ(errors.size(), 1'000'000U);
}

TEST(ExternalCommand, WithOnlyStandardOutputCapturedStillReportsAFailure) {
    std::string output;
    const std::string report = standardErrorOf([&output] {
        auto command = shell("echo out; echo err >&2; exit 3");
        command.setStdout(&output);
        EXPECT_EQ(command.execute(), 3);
    });
    EXPECT_EQ(output, "out\n");
    EXPECT_EQ(report, "err\nexit code 3: sh -c echo out; echo err >&2; exit 3\n");
}

TEST(ExternalCommand, StaysSilentAboutAFailureWhenStandardErrorIsCaptured) {
    std::string errors;
    const std::string report = standardErrorOf([&errors] {
        auto command = shell("echo err >&2; exit 1");
        command.setStderr(&errors);
        EXPECT_EQ(command.execute(), 1);
    });
    EXPECT_EQ(errors, "err\n");
    EXPECT_EQ(report, "");
}

TEST(ExternalCommand, EndsTheReportOfABareProgramInABlank) {
    const std::string report =
        standardErrorOf([] { EXPECT_EQ(ExternalCommand("false", {}).execute(), 1); });
    EXPECT_EQ(report, "exit code 1: false \n");
}

TEST(ExternalCommand, HandsArgumentsOverAsTheyAre) {
    std::string output;
    ExternalCommand command("printf", {"%s|", "", "a b", "$HOME", "*"});
    command.setStdout(&output);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output, "|a b|$HOME|*|");
}

/// A directory of PATH that may not be searched would make another error of a missing program.
void useReadablePath() {
    ::setenv("PATH", "/usr/bin:/bin", 1);
}

TEST(ExternalCommand, OfAnUnknownProgramIs255) {
    useReadablePath();
    const std::string report =
        standardErrorOf([] { EXPECT_EQ(ExternalCommand("no-such-tool", {"-x"}).execute(), 255); });
    EXPECT_EQ(report,
              "ERROR during execvp: No such file or directory\nexit code 255: no-such-tool -x\n");
}

TEST(ExternalCommand, CapturesTheChildsMessageAboutAnUnknownProgram) {
    useReadablePath();
    std::string errors;
    ExternalCommand command("no-such-tool", {});
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 255);
    EXPECT_EQ(errors, "ERROR during execvp: No such file or directory\n");
}

TEST(ExternalCommand, RunsOnce) {
    auto command = shell("exit 0");
    command.execute();
    try {
        command.execute();
        FAIL() << "ran twice";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "command already executed");
    }
}

TEST(ExternalCommand, RunsOnceAlsoWhenTheRunFailed) {
    std::string errors;
    ExternalCommand command("no-such-tool", {});
    command.setStderr(&errors);
    command.execute();
    EXPECT_THROW(command.execute(), std::runtime_error);
}

TEST(ExternalCommand, LetsBufferedOutputComeOutOnce) {
    const auto result = inChild([] {
        std::cout << "once ";
        shell("echo child").execute();
        std::string errors;
        ExternalCommand missing("no-such-tool", {});
        missing.setStderr(&errors);
        std::cout << "twice ";
        missing.execute();
        return 0;
    });
    EXPECT_EQ(result.output, "once child\ntwice ");
}

TEST(ExternalCommand, GivesTheChildTheDefaultForABrokenPipe) {
    const auto result = inChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        return -shell("kill -PIPE $$").execute();
    });
    EXPECT_EQ(outcome(result), SIGPIPE);
}

int openDescriptors() {
    const DirectoryStream stream(::opendir("/proc/self/fd"));
    int count = 0;
    while (::readdir(stream.get()) != nullptr) {
        ++count;
    }
    return count;
}

TEST(ExternalCommand, LeavesNoDescriptorBehind) {
    const int before = openDescriptors();
    for (int run = 0; run < 20; ++run) {
        std::string output;
        std::string errors;
        auto command = shell("exit 1");
        command.setStdout(&output);
        command.setStderr(&errors);
        command.execute();
    }
    EXPECT_EQ(openDescriptors(), before);
}

/// What execute throws with `limit` as the first descriptor that cannot be had.
std::string errorWithDescriptorLimit(rlim_t extra) {
    const auto result = inChild([extra] {
        const auto next = static_cast<rlim_t>(::dup(0));
        const rlimit limit = {next + 1 + extra, next + 1 + extra};
        ::setrlimit(RLIMIT_NOFILE, &limit);
        std::string target;
        auto command = shell("exit 0");
        command.setStdout(&target);
        command.setStderr(&target);
        try {
            command.execute();
        } catch (const std::runtime_error& error) {
            std::cerr << error.what();
        }
        return 0;
    });
    return result.errorOutput;
}

TEST(ExternalCommand, ThrowsWithoutAPipeForStandardOutput) {
    EXPECT_EQ(errorWithDescriptorLimit(1), "cannot create pipe for stdout");
}

TEST(ExternalCommand, ThrowsWithoutAPipeForStandardError) {
    EXPECT_EQ(errorWithDescriptorLimit(3), "cannot create pipe for stderr");
}

TEST(ExternalCommand, WithoutAChildReportsAndReturnsMinusOne) {
    const auto result = inChild([] {
        if (::geteuid() == 0 && ::setresuid(64'999, 64'999, 64'999) != 0) {
            return 2;  // root may fork without limit
        }
        const rlimit none = {0, 0};
        ::setrlimit(RLIMIT_NPROC, &none);
        return shell("exit 0").execute() == -1 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, "fork() failed: Resource temporarily unavailable\n");
}

}  // namespace
