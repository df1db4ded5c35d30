#include "cli/options.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <vector>

#include "util/settings.h"

namespace {

struct Parsed {
    int code = 0;
    std::string output;
    std::string errorOutput;
};

/// Parses the words that follow the program's name.
class Options : public testing::Test {
protected:
    Parsed parse(std::vector<std::string> arguments) {
        settings() = Settings();
        words = std::move(arguments);
        words.insert(words.begin(), "kivctl");
        vector.clear();
        for (std::string& word : words) {
            vector.push_back(word.data());
        }
        vector.push_back(nullptr);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Parsed parsed;
        parsed.code = parseArguments(static_cast<int>(words.size()), vector.data());
        parsed.output = testing::internal::GetCapturedStdout();
        parsed.errorOutput = testing::internal::GetCapturedStderr();
        return parsed;
    }

    std::vector<std::string> words;
    std::vector<char*> vector;
};

TEST_F(Options, RememberTheProgramsName) {
    parse({"status", "-a"});
    EXPECT_STREQ(programName(), "kivctl");
}

TEST_F(Options, HaveDefaults) {
    EXPECT_EQ(parse({"status", "-a"}).code, Status);
    EXPECT_STREQ(configFile(), "/etc/tarnwell/kiv.conf");
    EXPECT_EQ(userName(), nullptr);
    EXPECT_EQ(debugMode(), 0);
}

TEST_F(Options, NameTheConfigurationFileInEveryForm) {
    for (const auto& form : {std::vector<std::string>{"-c", "/x"},
                             {"-c/x"},
                             {"--config", "/x"},
                             {"--config=/x"},
                             {"--conf=/x"}}) {
        auto arguments = form;
        arguments.insert(arguments.end(), {"start", "alice"});
        EXPECT_EQ(parse(arguments).code, Start);
        EXPECT_STREQ(configFile(), "/x");
        EXPECT_STREQ(userName(), "alice");
    }
}

TEST_F(Options, SwitchDebugModeOn) {
    EXPECT_EQ(parse({"-d", "stop", "-a"}).code, Stop);
    EXPECT_EQ(debugMode(), 1);
}

TEST_F(Options, EndAtTheCommand) {
    const Parsed parsed = parse({"status", "-a", "-h"});
    EXPECT_EQ(parsed.code, UsageError);
    EXPECT_EQ(parsed.errorOutput, "[ERROR] kivctl: too many arguments\n");
}

TEST_F(Options, EndAtTwoDashes) {
    EXPECT_EQ(parse({"--", "status", "-a"}).code, Status);
}

TEST_F(Options, AnswerHelpAtOnce) {
    EXPECT_EQ(parse({"-h", "-c", "x"}).code, Help);
    EXPECT_STREQ(configFile(), "/etc/tarnwell/kiv.conf");
    EXPECT_EQ(parse({"--help"}).code, Help);
    EXPECT_EQ(parse({"-h", "-x"}).code, Help);
}

TEST_F(Options, AnswerVersionAtOnce) {
    EXPECT_EQ(parse({"-v"}).code, Version);
    EXPECT_EQ(parse({"-d", "--version", "nonsense"}).code, Version);
}

TEST_F(Options, KnowTheCommands) {
    EXPECT_EQ(parse({"start", "x"}).code, 4);
    EXPECT_EQ(parse({"stop", "x"}).code, 5);
    EXPECT_EQ(parse({"status", "x"}).code, 6);
    EXPECT_EQ(parse({"exec", "x"}).code, 7);
}

TEST_F(Options, TakeATextThatOnlyBeginsLikeAllAccountsForAName) {
    EXPECT_EQ(parse({"status", "-abc"}).code, Status);
    EXPECT_STREQ(userName(), "-abc");
}

TEST_F(Options, TakeAnyTextForExecsName) {
    for (const std::string name : {"-a", "-x", "--help", ""}) {
        EXPECT_EQ(parse({"exec", name}).code, Exec);
        EXPECT_EQ(userName(), name);
    }
}

TEST_F(Options, KeepAnEmptyNameApartFromAllAccounts) {
    EXPECT_EQ(parse({"stop", ""}).code, Stop);
    ASSERT_NE(userName(), nullptr);
    EXPECT_STREQ(userName(), "");
}

struct Mistake {
    std::vector<std::string> arguments;
    std::string message;
};

class Mistakes : public Options, public testing::WithParamInterface<Mistake> {};

TEST_P(Mistakes, YieldOneErrorLine) {
    const Parsed parsed = parse(GetParam().arguments);
    EXPECT_EQ(parsed.code, UsageError);
    EXPECT_EQ(parsed.output, "");
    EXPECT_EQ(parsed.errorOutput, "[ERROR] kivctl: " + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(Cases, Mistakes,
                         testing::Values(Mistake{{}, "missing command (use '-h' for help)"},
                                         Mistake{{"-d"}, "missing command (use '-h' for help)"},
                                         Mistake{{"-c"}, "option '-c' requires an argument."},
                                         Mistake{{"--config"}, "option '-c' requires an argument."},
                                         Mistake{{"-x", "status", "-a"}, "unknown option '-x'"},
                                         Mistake{{"--foo"}, "unknown option '--foo'"},
                                         Mistake{{"--foo=%s"}, "unknown option '--foo=%s'"},
                                         Mistake{{"-k"}, "option '-k' requires an argument."},
                                         Mistake{{"-\x01"}, "unknown option '-\\x01'"},
                                         Mistake{{"-\xfe"}, "unknown option '-\\xfe'"},
                                         Mistake{{"--help=x"}, "unknown option '-h'"},
                                         Mistake{{"status", "-a", "extra"}, "too many arguments"},
                                         Mistake{{"exec", "alice", "extra"}, "too many arguments"},
                                         Mistake{{"start"}, "missing user name (or '-a' option)"},
                                         Mistake{{"stop"}, "missing user name (or '-a' option)"},
                                         Mistake{{"status"}, "missing user name (or '-a' option)"},
                                         Mistake{{"exec"}, "missing user name"},
                                         Mistake{{"restart", "x"}, "unknown command 'restart'"},
                                         Mistake{{"Start", "x"}, "unknown command 'Start'"},
                                         Mistake{{"star"}, "unknown command 'star'"},
                                         Mistake{{""}, "unknown command ''"},
                                         Mistake{{"-"}, "unknown command '-'"},
                                         Mistake{{"%s", "x"}, "unknown command '%s'"},
                                         Mistake{{"status", "-q"}, "unknown option '-q'"},
                                         Mistake{{"status", "--all"}, "unknown option '--all'"},
                                         Mistake{{"status", "-"}, "unknown option '-'"}));

TEST_F(Options, WriteTheColoursToStandardOutputWhenStandardErrorIsATerminal) {
    int terminal = -1;
    int errors = -1;
    ASSERT_EQ(::openpty(&terminal, &errors, nullptr, nullptr, nullptr), 0);
    const int kept = ::dup(STDERR_FILENO);
    testing::internal::CaptureStdout();
    ::dup2(errors, STDERR_FILENO);
    char program[] = "kivctl";
    std::array<char*, 2> arguments = {program, nullptr};
    parseArguments(1, arguments.data());
    ::dup2(kept, STDERR_FILENO);
    const std::string output = testing::internal::GetCapturedStdout();
    std::string text;
    for (char c = 0; c != '\n' && ::read(terminal, &c, 1) == 1;) {
        text += c;
    }
    for (const int descriptor : {terminal, errors, kept}) {
        ::close(descriptor);
    }
    EXPECT_EQ(output, "\033[31m\033[0m");
    EXPECT_EQ(text, "[ERROR] kivctl: missing command (use '-h' for help)\r\n");
}

TEST_F(Options, PrintTheHelpText) {
    parse({"-c", "/elsewhere", "-h"});
    testing::internal::CaptureStdout();
    printHelp();
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "Usage: kivctl [options] [command]\n"
        "\n"
        "Options:\n"
        "  -c, --config=FILE     use configuration file FILE\n"
        "                        default: /etc/tarnwell/kiv.conf\n"
        "\n"
        "Commands:\n"
        "  exec   <user>         run shell within container of user <user>\n"
        "  start  <user> | -a    start container for user <user>, or with '-a' for all configured "
        "users\n"
        "  stop   <user> | -a    stop container for user <user>, or with '-a' for all configured "
        "users\n"
        "  status <user> | -a    show container status for user <user>, or with '-a' for all "
        "configured users\n"
        "  -h, --help            show this help\n"
        "  -v, --version         show program version\n");
}

}  // namespace
