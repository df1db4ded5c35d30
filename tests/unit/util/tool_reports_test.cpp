// What running a tool returns and what it says on standard error.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <list>
#include <stdexcept>

#include "../fs/temporary_directory.h"
#include "child_process.h"
#include "util/external_command.h"

namespace {

struct Run {
    const char* name;
    std::string program;
    std::list<std::string> arguments;
    int result;
    std::string report;
};

class ToolRun : public testing::TestWithParam<Run> {};

TEST_P(ToolRun, ReturnsAndReports) {
    testing::internal::CaptureStderr();
    const int result = ExternalCommand(GetParam().program, GetParam().arguments).execute();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), GetParam().report);
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
    testing::internal::CaptureStderr();
    ExternalCommand("sh", {"-c", "echo trouble >&2; exit 4"}).execute();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "trouble\nexit code 4: sh -c echo trouble >&2; exit 4\n");
}

TEST(ExternalCommand, ReportsNothingOfASuccess) {
    const auto result = inChild([] { return ExternalCommand("true", {"ignored"}).execute(); });
    EXPECT_EQ(result.output + result.errorOutput, "");
}

/// What a second execute says after the first one.
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
    testing::internal::CaptureStderr();
    command.execute();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "signal 9: sh -c kill -KILL $$\n");
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

}  // namespace
