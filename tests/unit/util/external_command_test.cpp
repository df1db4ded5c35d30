#include "util/external_command.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <iterator>
#include <list>
#include <stdexcept>
#include <string>

#include "../fs/temporary_directory.h"
#include "captured.h"
#include "child_process.h"
#include "util/directory_stream.h"

namespace {

ExternalCommand shell(const std::string& script) {
    return ExternalCommand("sh", {"-c", script});
}

std::string standardErrorOf(const std::function<void()>& action) {
    Captured standardError(STDERR_FILENO);
    action();
    return standardError.text();
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

TEST(ExternalCommand, CapturesBothStreamsSeparately) {
    std::string output;
    std::string errors;
    auto command = shell("echo out; echo err >&2");
    command.setStdout(&output);
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output, "out\n");
    EXPECT_EQ(errors, "err\n");
}

TEST(ExternalCommand, AppendsToTheTarget) {
    std::string output = "before ";
    auto command = shell("printf after");
    command.setStdout(&output);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output, "before after");
}

TEST(ExternalCommand, CapturesMoreThanFitsIntoAPipe) {
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

TEST(ExternalCommand, PassesArgumentsUnchanged) {
    std::string output;
    ExternalCommand command("printf", {"%s|", "", "a b", "$HOME", "*"});
    command.setStdout(&output);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output, "|a b|$HOME|*|");
}

/// Sets PATH: with a directory that may not be searched, a missing program would cause another
/// error.
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

TEST(ExternalCommand, WritesBufferedOutputOnce) {
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

TEST(ExternalCommand, LeavesNoDescriptorOpen) {
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

/// The exception of execute when `limit` is the first descriptor that cannot be opened.
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

// The result and the standard error of running a tool.

struct Run {
    const char* name;
    std::string program;
    std::list<std::string> arguments;
    int result;
    std::string report;
};

class ToolRun : public testing::TestWithParam<Run> {
protected:
    // a tool inherits an ignored SIGHUP when the tests run under nohup(1)
    ToolRun() : hangup(std::signal(SIGHUP, SIG_DFL)) {}
    ~ToolRun() override { std::signal(SIGHUP, hangup); }

private:
    decltype(SIG_DFL) hangup;
};

TEST_P(ToolRun, ReturnsAndReports) {
    Captured standardError(STDERR_FILENO);
    const int result = ExternalCommand(GetParam().program, GetParam().arguments).execute();
    EXPECT_EQ(standardError.text(), GetParam().report);
    EXPECT_EQ(result, GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Exits, ToolRun,
    testing::Values(
        Run{"Zero", "sh", {"-c", "exit 0"}, 0, ""},
        Run{"One", "sh", {"-c", "exit 1"}, 1, "exit code 1: sh -c exit 1\n"},
        Run{"Two", "sh", {"-c", "exit 2"}, 2, "exit code 2: sh -c exit 2\n"},
        Run{"OneHundredTwentySeven",
            "sh",
            {"-c", "exit 127"},
            127,
            "exit code 127: sh -c exit 127\n"},
        Run{"OneHundredTwentyEight",
            "sh",
            {"-c", "exit 128"},
            128,
            "exit code 128: sh -c exit 128\n"},
        Run{"TwoHundredFiftyFive",
            "sh",
            {"-c", "exit 255"},
            255,
            "exit code 255: sh -c exit 255\n"},
        Run{"NoArguments", "false", {}, 1, "exit code 1: false \n"},
        Run{"EmptyArgument", "false", {""}, 1, "exit code 1: false \n"},
        Run{"EmptyArgumentBetween", "false", {"a", "", "b"}, 1, "exit code 1: false a  b\n"},
        Run{"EmptyArgumentLast", "false", {"a", ""}, 1, "exit code 1: false a \n"},
        Run{"BlanksInArguments", "false", {" a ", "b c"}, 1, "exit code 1: false  a  b c\n"},
        Run{"PercentSigns", "false", {"%s%n"}, 1, "exit code 1: false %s%n\n"}),
    [](const testing::TestParamInfo<Run>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Signals, ToolRun,
    testing::Values(
        Run{"Hangup", "sh", {"-c", "kill -HUP $$"}, -1, "signal 1: sh -c kill -HUP $$\n"},
        Run{"Kill", "sh", {"-c", "kill -KILL $$"}, -9, "signal 9: sh -c kill -KILL $$\n"},
        Run{"Terminate", "sh", {"-c", "kill -TERM $$"}, -15, "signal 15: sh -c kill -TERM $$\n"},
        Run{"User", "sh", {"-c", "kill -USR1 $$"}, -10, "signal 10: sh -c kill -USR1 $$\n"}),
    [](const testing::TestParamInfo<Run>& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    ThatCannotBeRun, ToolRun,
    testing::Values(
        Run{"NoSuchPath",
            "/no/such/tool",
            {"-x", "y"},
            255,
            "ERROR during execvp: No such file or directory\nexit code 255: /no/such/tool -x y\n"},
        Run{"Directory",
            "/",
            {},
            255,
            "ERROR during execvp: Permission denied\nexit code 255: / \n"},
        Run{"EmptyName",
            "",
            {},
            255,
            "ERROR during execvp: No such file or directory\nexit code 255:  \n"},
        Run{"NameTooLong",
            "/" + std::string(300, 'x'),
            {},
            255,
            "ERROR during execvp: File name too long\nexit code 255: /" + std::string(300, 'x') +
                " \n"}),
    [](const testing::TestParamInfo<Run>& row) { return row.param.name; });

TEST(ExternalCommand, FindsTheProgramThroughThePath) {
    const TemporaryDirectory directory;
    directory.write("/own-tool", "#!/bin/sh\nprintf 'found %s' \"$1\"\n");
    ASSERT_EQ(::chmod(directory.at("/own-tool").c_str(), 0755), 0);
    const auto result = inChild([&directory] {
        ::setenv("PATH", directory.path.c_str(), 1);
        return ExternalCommand("own-tool", {"it"}).execute();
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "found it");
}

TEST(ExternalCommand, OfAFileThatIsNotExecutableIs255) {
    const TemporaryDirectory directory;
    const std::string file = directory.write("/data", "#!/bin/sh\n");
    std::string errors = "before: ";
    ExternalCommand command(file, {});
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 255);
    EXPECT_EQ(errors, "before: ERROR during execvp: Permission denied\n");
}

TEST(ExternalCommand, ReportsAfterAllThatTheToolWrote) {
    Captured standardError(STDERR_FILENO);
    ExternalCommand("sh", {"-c", "echo trouble >&2; exit 4"}).execute();
    EXPECT_EQ(standardError.text(), "trouble\nexit code 4: sh -c echo trouble >&2; exit 4\n");
}

TEST(ExternalCommand, ReportsNothingOfASuccess) {
    const auto result = inChild([] { return ExternalCommand("true", {"ignored"}).execute(); });
    EXPECT_EQ(result.output + result.errorOutput, "");
}

/// The error of a second execute.
std::string secondRun(ExternalCommand& command) {
    try {
        command.execute();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "ran again";
}

TEST(ExternalCommand, RunsOnceAlsoWhenASignalEndedTheRun) {
    ExternalCommand command("sh", {"-c", "kill -KILL $$"});
    Captured standardError(STDERR_FILENO);
    command.execute();
    EXPECT_EQ(standardError.text(), "signal 9: sh -c kill -KILL $$\n");
    EXPECT_EQ(secondRun(command), "command already executed");
}

TEST(ExternalCommand, RunsOnceAlsoWhenThereWasNoPipe) {
    const auto result = inChild([] {
        std::string output;
        ExternalCommand command("true", {});
        command.setStdout(&output);
        const rlimit none = {0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        std::cerr << secondRun(command) << "; " << secondRun(command);
        return 0;
    });
    EXPECT_EQ(result.errorOutput, "cannot create pipe for stdout; command already executed");
}

TEST(ExternalCommand, NamesStandardErrorWhenOnlyThatHasNoPipe) {
    const auto result = inChild([] {
        std::string errors;
        ExternalCommand command("true", {});
        command.setStderr(&errors);
        const rlimit none = {0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        std::cerr << secondRun(command);
        return 0;
    });
    EXPECT_EQ(result.errorOutput, "cannot create pipe for stderr");
}

TEST(ExternalCommand, RunsOnceAlsoWhenThereWasNoChild) {
    const auto result = inChild([] {
        if (::geteuid() == 0 && ::setresuid(64'998, 64'998, 64'998) != 0) {
            return 2;  // root may fork without limit
        }
        const rlimit none = {0, 0};
        ::setrlimit(RLIMIT_NPROC, &none);
        ExternalCommand command("true", {});
        if (command.execute() != -1) {
            return 1;
        }
        std::cerr << secondRun(command);
        return 0;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput,
              "fork() failed: Resource temporarily unavailable\ncommand already executed");
}

// Streams, signals and waiting, between this process and the tool that it runs.

std::string outputOf(const std::string& text) {
    std::string output;
    auto command = shell(text);
    command.setStdout(&output);
    EXPECT_EQ(command.execute(), 0);
    return output;
}

TEST(ExternalCommand, PassesTheProgramAsArgumentZero) {
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
    auto command = shell("echo first >&2; head -c 200000 /dev/zero; echo last >&2");
    command.setStdout(&output);
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(output.size(), 200'000U);
    EXPECT_EQ(errors, "first\nlast\n");
}

TEST(ExternalCommand, CapturesOnlyALongStandardError) {
    std::string errors;
    auto command = shell("head -c 200000 /dev/zero >&2");
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(errors.size(), 200'000U);
}

TEST(ExternalCommand, AppendsToBothTargets) {
    std::string output = "old out ";
    std::string errors = "old err ";
    auto command = shell("printf out; printf err >&2; exit 9");
    command.setStdout(&output);
    command.setStderr(&errors);
    EXPECT_EQ(command.execute(), 9);
    EXPECT_EQ(output, "old out out");
    EXPECT_EQ(errors, "old err err");
}

TEST(ExternalCommand, LeavesStreamsThatAreNotCapturedToTheTool) {
    const auto result = inChild([] { return shell("echo out; echo err >&2").execute(); });
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

TEST(ExternalCommand, ReadsUntilAllProcessesHaveClosedTheStream) {
    EXPECT_EQ(outputOf("(sleep 0.1; printf late) & exit 0"), "late");
}

TEST(ExternalCommand, WritesBufferedTextBeforeTheToolsOwnAndOnce) {
    const auto result = inChild([] {
        std::cout << "before ";
        shell("printf 'tool '").execute();
        std::cout << "after";
        return 0;
    });
    EXPECT_EQ(result.output, "before tool after");
}

TEST(ExternalCommand, DoesNotCaptureTextThatWasBufferedBefore) {
    const auto result = inChild([] {
        std::cout << "mine";
        std::string output;
        auto command = shell("printf its");
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

TEST(ExternalCommand, ContinuesToReadAfterASignal) {
    const auto result = inChild([] {
        interruptAllTheTime();
        std::string output;
        auto command = shell("sleep 0.1; printf a; sleep 0.1; printf b; exit 3");
        command.setStdout(&output);
        const int status = command.execute();
        return output == "ab" && alarms > 0 ? status : 100;
    });
    EXPECT_EQ(outcome(result), 3);
}

TEST(ExternalCommand, ContinuesToWaitAfterASignal) {
    const auto result = inChild([] {
        interruptAllTheTime();
        const int status = shell("sleep 0.1; exit 3").execute();
        return alarms > 0 ? status : 100;
    });
    EXPECT_EQ(outcome(result), 3);
}

// deliberate: a wait that fails looks like success
TEST(ExternalCommand, OfAChildThatCannotBeWaitedForIsZero) {
    const auto result = inChild([] {
        std::signal(SIGCHLD, SIG_IGN);
        return shell("exit 3").execute();
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, "");
}

TEST(ExternalCommand, GivesTheChildBackTheSignalThatItIgnoresItself) {
    const auto result = inChild([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::string output;
        auto command = shell("grep SigIgn /proc/self/status");
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
        shell("exit 0").execute();
        return std::signal(SIGPIPE, SIG_DFL) == SIG_IGN ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ExternalCommand, LeavesNoDescriptorOpenAfterAHundredRuns) {
    const int before = openDescriptors();
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
        shell("exit 0").execute();
        shell("kill -KILL $$").execute();
        return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

}  // namespace
