// What happens between this process and the tool that it runs: streams, signals, waiting.
#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <string>

#include "child_process.h"
#include "util/directory_stream.h"
#include "util/external_command.h"

namespace {

ExternalCommand script(const std::string& text) {
    return ExternalCommand("sh", {"-c", text});
}

std::string outputOf(const std::string& text) {
    std::string output;
    auto command = script(text);
    command.setStdout(&output);
    EXPECT_EQ(command.execute(), 0);
    return output;
}

TEST(ExternalCommand, HandsTheProgramOverAsItsOwnName) {
    EXPECT_EQ(outputOf("printf %s \"$0\""), "sh");
}

TEST(ExternalCommand, KeepsNulBytesOfTheOutput) {
    EXPECT_EQ(outputOf("printf 'a\\0b'"), std::string("a\0b", 3));
}

TEST(ExternalCommand, CapturesNothingOfASilentTool) {
    EXPECT_EQ(outputOf(":"), "");
}

class OutputOfLength : public testing::TestWithParam<int> {};

TEST_P(OutputOfLength, IsCapturedWhole) {
    const std::string length = std::to_string(GetParam());
    EXPECT_EQ(outputOf("head -c " + length + " /dev/zero | tr '\\0' x"),
              std::string(static_cast<std::size_t>(GetParam()), 'x'));
}

INSTANTIATE_TEST_SUITE_P(AroundABuffer, OutputOfLength,
                         testing::Values(1, 1'023, 1'024, 1'025, 2'048, 65'536, 65'537));

TEST(ExternalCommand, ReadsStandardOutputToItsEndBeforeStandardError) {
    std::string output;
    std::string errors;
    auto command = script("echo first >&2; head -c 200000 /dev/zero; echo last >&2");
    command.setStdout(&output);
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output.size(), 200'000U);
    EXPECT_EQ(errors, "first\nlast\n");
}

TEST(ExternalCommand, CapturesALongStandardErrorAlone) {
    std::string errors;
    auto command = script("head -c 200000 /dev/zero >&2");
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(errors.size(), 200'000U);
}

TEST(ExternalCommand, AppendsToBothTargets) {
    std::string output = "old out ";
    std::string errors = "old err ";
    auto command = script("printf out; printf err >&2; exit 9");
    command.setStdout(&output);
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 9);
    EXPECT_EQ(output, "old out out");
    EXPECT_EQ(errors, "old err err");
}

TEST(ExternalCommand, LeavesStreamsThatAreNotCapturedToTheTool) {
    const auto result = inChild([] { return script("echo out; echo err >&2").execute(); });
    EXPECT_EQ(result.output, "out\n");
    EXPECT_EQ(result.errorOutput, "err\n");
}

TEST(ExternalCommand, LeavesStandardInputToTheTool) {
    const auto result = inChild([] {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0 || ::write(ends[1], "typed", 5) != 5) {
            return 2;
        }
        ::close(ends[1]);
        ::dup2(ends[0], STDIN_FILENO);
        return ExternalCommand("cat", {}).execute();
    });
    EXPECT_EQ(result.output, "typed");
}

TEST(ExternalCommand, ReadsUntilEverybodyHasClosedTheStream) {
    EXPECT_EQ(outputOf("(sleep 0.1; printf late) & exit 0"), "late");
}

TEST(ExternalCommand, WritesBufferedTextBeforeTheToolsOwnAndOnce) {
    const auto result = inChild([] {
        std::cout << "before ";
        script("printf 'tool '").execute();
        std::cout << "after";
        return 0;
    });
    EXPECT_EQ(result.output, "before tool after");
}

TEST(ExternalCommand, DoesNotCaptureTextThatWasBufferedBefore) {
    const auto result = inChild([] {
        std::cout << "mine";
        std::string output;
        auto command = script("printf its");
        command.setStdout(&output);
        command.execute();
        return output == "its" ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "mine");
}

TEST(ExternalCommand, KeepsItsOwnStreamsWhenTheProgramCannotBeRun) {
    const auto result = inChild([] {
        std::string output;
        std::string errors;
        ExternalCommand command("no-such-program", {});
        command.setStdout(&output);
        command.setStderr(&errors);
        const auto status = command.execute();
        std::cout << "out" << std::flush;
        std::cerr << "err" << std::flush;
        return status == 255 && output.empty() && std::cerr.good() ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "out");
    EXPECT_EQ(result.errorOutput, "err");
}

volatile std::sig_atomic_t alarms = 0;

void countAlarm(int) {
    alarms = alarms + 1;
}

/// From now on system calls of this process are interrupted every few milliseconds.
void interruptAllTheTime() {
    struct sigaction action {};
    action.sa_handler = countAlarm;  // without SA_RESTART
    ::sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 5'000}, {0, 5'000}};
    ::setitimer(ITIMER_REAL, &often, nullptr);
}

TEST(ExternalCommand, GoesOnReadingAfterASignal) {
    const auto result = inChild([] {
        interruptAllTheTime();
        std::string output;
        auto command = script("sleep 0.1; printf a; sleep 0.1; printf b; exit 3");
        command.setStdout(&output);
        const int status = command.execute();
        return output == "ab" && alarms > 0 ? status : 100;
    });
    EXPECT_EQ(outcome(result), 3);
}

TEST(ExternalCommand, GoesOnWaitingAfterASignal) {
    const auto result = inChild([] {
        interruptAllTheTime();
        const int status = script("sleep 0.1; exit 3").execute();
        return alarms > 0 ? status : 100;
    });
    EXPECT_EQ(outcome(result), 3);
}

// deliberate: a wait that fails reads as success
TEST(ExternalCommand, OfAChildThatCannotBeWaitedForIsZero) {
    const auto result = inChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        return script("exit 3").execute();
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, "");
}

TEST(ExternalCommand, GivesTheChildBackTheSignalThatItIgnoresItself) {
    const auto result = inChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::string output;
        auto command = script("grep SigIgn /proc/self/status");
        command.setStdout(&output);
        command.execute();
        const auto ignored = std::stoull(output.substr(output.find(':') + 1), nullptr, 16);
        return (ignored >> (SIGPIPE - 1) & 1) == 0 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ExternalCommand, KeepsIgnoringABrokenPipeItself) {
    const auto result = inChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        script("exit 0").execute();
        return std::signal(SIGPIPE, SIG_DFL) == SIG_IGN ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

long openDescriptors() {
    const DirectoryStream stream(::opendir("/proc/self/fd"));
    long count = 0;
    while (::readdir(stream.get()) != nullptr) {
        ++count;
    }
    return count;
}

TEST(ExternalCommand, LeavesNoDescriptorBehindInAHundredRuns) {
    const long before = openDescriptors();
    for (int run = 0; run < 100; ++run) {
        std::string output;
        std::string errors;
        ExternalCommand command("true", {});
        command.setStdout(run % 2 == 0 ? &output : nullptr);
        command.setStderr(run % 3 == 0 ? &errors : nullptr);
        EXPECT_EQ(command.execute(), 0);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(ExternalCommand, LeavesNoChildBehind) {
    const auto result = inChild([] {
        script("exit 0").execute();
        script("kill -KILL $$").execute();
        return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

}  // namespace
