// Command lines that are wrong, and what is said about them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "command_line.h"
#include "terminal.h"

namespace {

struct Mistake {
    std::vector<std::string> words;
    std::string message;
};

class UsageMistake : public testing::TestWithParam<Mistake> {};

TEST_P(UsageMistake, IsToldInOneUncolouredLine) {
    const CommandLine line(GetParam().words);
    EXPECT_EQ(line.code, 1);
    EXPECT_EQ(line.output, "");
    EXPECT_EQ(line.errorOutput, "[ERROR] kivctl: " + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    OptionsWithoutArgument, UsageMistake,
    testing::Values(Mistake{{"-dc"}, "option '-c' requires an argument."},
                    Mistake{{"-c", "x", "-c"}, "option '-c' requires an argument."},
                    Mistake{{"-d", "--config"}, "option '-c' requires an argument."},
                    Mistake{{"--con"}, "option '-c' requires an argument."},
                    // deliberate: not a word of it being unknown
                    Mistake{{"-k", "start", "-a"}, "option '-k' requires an argument."},
                    Mistake{{"-dk"}, "option '-k' requires an argument."},
                    Mistake{{"-kx"}, "option '-k' requires an argument."}));

INSTANTIATE_TEST_SUITE_P(
    UnknownOptions, UsageMistake,
    testing::Values(Mistake{{"-x"}, "unknown option '-x'"}, Mistake{{"-a"}, "unknown option '-a'"},
                    Mistake{{"-dx"}, "unknown option '-x'"},
                    Mistake{{"-xd"}, "unknown option '-x'"}, Mistake{{"-H"}, "unknown option '-H'"},
                    Mistake{{"-?"}, "unknown option '-?'"}, Mistake{{"-:"}, "unknown option '-:'"},
                    Mistake{{"-%s"}, "unknown option '-%'"},
                    Mistake{{"-d-"}, "unknown option '--'"}, Mistake{{"- "}, "unknown option '- '"},
                    Mistake{{"-'"}, "unknown option '-''"}));

INSTANTIATE_TEST_SUITE_P(
    UnknownLongOptions, UsageMistake,
    testing::Values(Mistake{{"--foo", "start", "-a"}, "unknown option '--foo'"},
                    Mistake{{"-d", "--foo"}, "unknown option '--foo'"},
                    Mistake{{"-c", "x", "--foo", "--bar"}, "unknown option '--foo'"},
                    Mistake{{"--debug"}, "unknown option '--debug'"},
                    Mistake{{"--configuration=x"}, "unknown option '--configuration=x'"},
                    Mistake{{"--Help"}, "unknown option '--Help'"},
                    Mistake{{"--%s"}, "unknown option '--%s'"},
                    Mistake{{"--ip-unblock"}, "unknown option '--ip-unblock'"},
                    Mistake{{"--a\xc3\xa4"}, "unknown option '--a\xc3\xa4'"},
                    Mistake{{"--help=now"}, "unknown option '-h'"},
                    Mistake{{"--version=1"}, "unknown option '-v'"}));

INSTANTIATE_TEST_SUITE_P(UnprintableOptions, UsageMistake,
                         testing::Values(Mistake{{"-\x01"}, "unknown option '-\\x01'"},
                                         Mistake{{"-\n"}, "unknown option '-\\x0a'"},
                                         Mistake{{"-\x1b[31m"}, "unknown option '-\\x1b'"},
                                         Mistake{{"-\x7f"}, "unknown option '-\\x7f'"},
                                         Mistake{{"-\x80"}, "unknown option '-\\x80'"},
                                         Mistake{{"-\xc3\xa4"}, "unknown option '-\\xc3'"},
                                         Mistake{{"-\xff"}, "unknown option '-\\xff'"}));

INSTANTIATE_TEST_SUITE_P(
    Commands, UsageMistake,
    testing::Values(Mistake{{"--"}, "missing command (use '-h' for help)"},
                    Mistake{{"-c", "x"}, "missing command (use '-h' for help)"},
                    Mistake{{"restart"}, "unknown command 'restart'"},
                    Mistake{{"STATUS", "-a"}, "unknown command 'STATUS'"},
                    Mistake{{"stat", "-a"}, "unknown command 'stat'"},
                    Mistake{{"status ", "-a"}, "unknown command 'status '"},
                    Mistake{{"startx", "-a"}, "unknown command 'startx'"},
                    Mistake{{"alice", "start"}, "unknown command 'alice'"},
                    Mistake{{"--", "-d", "start"}, "unknown command '-d'"},
                    Mistake{{"restart", "a", "b", "c"}, "unknown command 'restart'"},
                    Mistake{{"%s%s"}, "unknown command '%s%s'"}));

INSTANTIATE_TEST_SUITE_P(
    Operands, UsageMistake,
    testing::Values(Mistake{{"-d", "exec"}, "missing user name"},
                    Mistake{{"-d", "start"}, "missing user name (or '-a' option)"},
                    Mistake{{"start", "-q"}, "unknown option '-q'"},
                    Mistake{{"stop", "-q", "x"}, "unknown option '-q'"},
                    Mistake{{"status", "-A"}, "unknown option '-A'"},
                    Mistake{{"status", "-h"}, "unknown option '-h'"},
                    Mistake{{"start", "--"}, "unknown option '--'"},
                    Mistake{{"start", "--", "alice"}, "unknown option '--'"},
                    Mistake{{"start", "-%s"}, "unknown option '-%s'"},
                    Mistake{{"start", "--config=x"}, "unknown option '--config=x'"},
                    // deliberate: typed text, so nothing is escaped here
                    Mistake{{"start", "-\x01"}, "unknown option '-\x01'"}));

INSTANTIATE_TEST_SUITE_P(
    TooManyWords, UsageMistake,
    testing::Values(Mistake{{"start", "alice", "bob"}, "too many arguments"},
                    Mistake{{"stop", "-a", "-a"}, "too many arguments"},
                    Mistake{{"status", "-a", "-d"}, "too many arguments"},
                    Mistake{{"status", "-abc", "x"}, "too many arguments"},
                    Mistake{{"start", "alice", "-c", "x"}, "too many arguments"},
                    Mistake{{"exec", "-a", "x"}, "too many arguments"},
                    Mistake{{"exec", "alice", "--", "ls"}, "too many arguments"},
                    Mistake{{"exec", "alice", ""}, "too many arguments"}));

TEST(UsageErrorLine, ShowsTheProgramsNameAsGiven) {
    EXPECT_EQ(CommandLine({}, "/opt/a b/%s").errorOutput,
              "[ERROR] /opt/a b/%s: missing command (use '-h' for help)\n");
}

TEST(UsageErrorLine, ShowsLongTextsWhole) {
    const std::string word(100'000, 'x');
    EXPECT_EQ(CommandLine({word}).errorOutput, "[ERROR] kivctl: unknown command '" + word + "'\n");
}

/// What the parser writes with `stream` on a terminal, for a command line without a command.
TerminalResult mistakeOnTerminal(int stream) {
    return onTerminal(stream, [] {
        char name[] = "kivctl";
        char* words[] = {name, nullptr};
        return parseArguments(1, words);
    });
}

TEST(UsageErrorLine, HasItsColoursOnStandardOutputWhenStandardErrorIsATerminal) {
    const auto result = mistakeOnTerminal(STDERR_FILENO);
    EXPECT_EQ(outcome(result.child), 1);
    EXPECT_EQ(result.terminal, "[ERROR] kivctl: missing command (use '-h' for help)\n");
    EXPECT_EQ(result.child.output, "\033[31m\033[0m");
    EXPECT_EQ(result.child.errorOutput, "");
}

TEST(UsageErrorLine, HasNoColoursWhenOnlyStandardOutputIsATerminal) {
    const auto result = mistakeOnTerminal(STDOUT_FILENO);
    EXPECT_EQ(result.terminal, "");
    EXPECT_EQ(result.child.errorOutput, "[ERROR] kivctl: missing command (use '-h' for help)\n");
}

TEST(UsageErrorLine, ColoursTheWordInBracketsWhenBothAreTheTerminal) {
    const auto result = onTerminal(STDERR_FILENO, [] {
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
        char name[] = "kivctl";
        char command[] = "exec";
        char* words[] = {name, command, nullptr};
        return parseArguments(2, words);
    });
    EXPECT_EQ(result.terminal, "\033[31m[ERROR]\033[0m kivctl: missing user name\n");
}

}  // namespace
