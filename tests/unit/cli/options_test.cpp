#include "cli/options.h"

#include <gtest/gtest.h>
#include <libintl.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "../util/captured.h"
#include "command_line.h"
#include "terminal.h"
#include "util/settings.h"

namespace {

/// Parses the words that follow the program's name.
class Options : public testing::Test {
protected:
    const CommandLine& parse(std::vector<std::string> words) {
        line.emplace(std::move(words));
        return *line;
    }

    std::optional<CommandLine> line;
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
    const CommandLine& parsed = parse({"status", "-a", "-h"});
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

TEST_F(Options, TakeAWordThatOnlyBeginsLikeAllAccountsForAName) {
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

TEST_F(Options, WriteTheColoursToStandardOutputWhenStandardErrorIsATerminal) {
    int terminal = -1;
    int errors = -1;
    ASSERT_EQ(::openpty(&terminal, &errors, nullptr, nullptr, nullptr), 0);
    const int kept = ::dup(STDERR_FILENO);
    Captured standardOutput(STDOUT_FILENO);
    ::dup2(errors, STDERR_FILENO);
    char program[] = "kivctl";
    std::array<char*, 2> arguments = {program, nullptr};
    parseArguments(1, arguments.data());
    ::dup2(kept, STDERR_FILENO);
    const std::string output = standardOutput.text();
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
    Captured standardOutput(STDOUT_FILENO);
    printHelp();
    EXPECT_EQ(
        standardOutput.text(),
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

// Valid command lines in all their forms.

constexpr const char* kDefault = "/etc/tarnwell/kiv.conf";
constexpr const char* kEverybody = "(everybody)";

struct Form {
    std::vector<std::string> words;
    int code;
    std::string user = kEverybody;
    std::string file = kDefault;
    int debug = 0;
};

class CommandLineForm : public testing::TestWithParam<Form> {};

TEST_P(CommandLineForm, YieldsACommandAndSettings) {
    const CommandLine line(GetParam().words);
    EXPECT_EQ(line.code, GetParam().code);
    EXPECT_EQ(userName() == nullptr ? kEverybody : userName(), GetParam().user);
    EXPECT_EQ(configFile(), GetParam().file);
    EXPECT_EQ(debugMode(), GetParam().debug);
    EXPECT_EQ(line.output, "");
    EXPECT_EQ(line.errorOutput, "");
}

INSTANTIATE_TEST_SUITE_P(
    Commands, CommandLineForm,
    testing::Values(Form{{"start", "-a"}, 4}, Form{{"stop", "-a"}, 5}, Form{{"status", "-a"}, 6},
                    Form{{"start", "alice"}, 4, "alice"}, Form{{"stop", "alice"}, 5, "alice"},
                    Form{{"status", "alice"}, 6, "alice"}, Form{{"exec", "alice"}, 7, "alice"}));

// only exec accepts any word; for the others "-a" differs from a longer word that begins so
INSTANTIATE_TEST_SUITE_P(
    OddNames, CommandLineForm,
    testing::Values(Form{{"exec", "-a"}, 7, "-a"}, Form{{"exec", "-abc"}, 7, "-abc"},
                    Form{{"exec", "-q"}, 7, "-q"}, Form{{"exec", "-"}, 7, "-"},
                    Form{{"exec", "--"}, 7, "--"}, Form{{"exec", "-h"}, 7, "-h"},
                    Form{{"exec", ""}, 7, ""}, Form{{"start", "-abc"}, 4, "-abc"},
                    Form{{"stop", "-abc"}, 5, "-abc"}, Form{{"status", "-abc"}, 6, "-abc"},
                    Form{{"status", "-aa"}, 6, "-aa"}, Form{{"status", "-a-"}, 6, "-a-"},
                    Form{{"status", "-a "}, 6, "-a "}, Form{{"start", ""}, 4, ""},
                    Form{{"start", "a-"}, 4, "a-"}, Form{{"start", "start"}, 4, "start"},
                    Form{{"start", "%s"}, 4, "%s"}));

INSTANTIATE_TEST_SUITE_P(
    OptionsBeforeTheCommand, CommandLineForm,
    testing::Values(Form{{"-d", "start", "-a"}, 4, kEverybody, kDefault, 1},
                    Form{{"-d", "-d", "start", "-a"}, 4, kEverybody, kDefault, 1},
                    Form{{"-c", "x", "start", "-a"}, 4, kEverybody, "x"},
                    Form{{"-c", "x", "-c", "y", "start", "-a"}, 4, kEverybody, "y"},
                    Form{{"-dc", "x", "start", "-a"}, 4, kEverybody, "x", 1},
                    Form{{"-dcx", "start", "-a"}, 4, kEverybody, "x", 1},
                    Form{{"-cd", "start", "-a"}, 4, kEverybody, "d"},
                    Form{{"-c", "-h", "start", "-a"}, 4, kEverybody, "-h"},
                    Form{{"-c", "--", "start", "-a"}, 4, kEverybody, "--"},
                    Form{{"-c", "", "start", "-a"}, 4, kEverybody, ""},
                    Form{{"--config=", "start", "-a"}, 4, kEverybody, ""},
                    Form{{"--config=a=b", "start", "-a"}, 4, kEverybody, "a=b"},
                    Form{{"--config", "--help", "start", "-a"}, 4, kEverybody, "--help"},
                    Form{{"--c=x", "start", "-a"}, 4, kEverybody, "x"},
                    Form{{"-d", "--", "start", "-a"}, 4, kEverybody, kDefault, 1}));

INSTANTIATE_TEST_SUITE_P(
    HelpAndVersion, CommandLineForm,
    testing::Values(Form{{"-h"}, 2}, Form{{"--help"}, 2}, Form{{"--he"}, 2}, Form{{"-v"}, 3},
                    Form{{"--version"}, 3}, Form{{"-hv"}, 2}, Form{{"-vh"}, 3}, Form{{"-hx"}, 2},
                    Form{{"-h", "-c", "x"}, 2}, Form{{"-h", "-c"}, 2}, Form{{"-v", "-c"}, 3},
                    Form{{"-h", "-d"}, 2}, Form{{"-h", "start", "alice"}, 2},
                    Form{{"-h", "--foo", "a", "b", "c"}, 2}, Form{{"-v", "-k"}, 3},
                    Form{{"-c", "x", "-h"}, 2, kEverybody, "x"},
                    Form{{"-d", "-v"}, 3, kEverybody, kDefault, 1},
                    Form{{"-dh"}, 2, kEverybody, kDefault, 1}));

TEST(CommandLineSettings, PointIntoTheArgumentVector) {
    char name[] = "kivctl";
    char option[] = "-c";
    char file[] = "/tmp/file";
    char command[] = "start";
    char user[] = "alice";
    char* words[] = {name, option, file, command, user, nullptr};
    EXPECT_EQ(parseArguments(5, words), Start);
    EXPECT_EQ(programName(), name);
    EXPECT_EQ(configFile(), file);
    EXPECT_EQ(userName(), user);
    settings() = Settings();
}

TEST(CommandLineSettings, HaveTheProgramsNameAlsoAfterAMistake) {
    const CommandLine line({"-x"}, "/usr/sbin/kivctl");
    EXPECT_EQ(line.code, UsageError);
    EXPECT_STREQ(programName(), "/usr/sbin/kivctl");
}

TEST(CommandLineSettings, HaveTheProgramsNameAlsoForHelp) {
    const CommandLine line({"-h"}, "./kivctl");
    EXPECT_STREQ(programName(), "./kivctl");
}

// Invalid command lines and their error messages.

struct Mistake {
    std::vector<std::string> words;
    std::string message;
};

class UsageMistake : public testing::TestWithParam<Mistake> {};

TEST_P(UsageMistake, IsReportedInOneUncolouredLine) {
    const CommandLine line(GetParam().words);
    EXPECT_EQ(line.code, 1);
    EXPECT_EQ(line.output, "");
    EXPECT_EQ(line.errorOutput, "[ERROR] kivctl: " + GetParam().message + "\n");
}

INSTANTIATE_TEST_SUITE_P(Cases, UsageMistake,
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

INSTANTIATE_TEST_SUITE_P(
    OptionsWithoutArgument, UsageMistake,
    testing::Values(Mistake{{"-dc"}, "option '-c' requires an argument."},
                    Mistake{{"-c", "x", "-c"}, "option '-c' requires an argument."},
                    Mistake{{"-d", "--config"}, "option '-c' requires an argument."},
                    Mistake{{"--con"}, "option '-c' requires an argument."},
                    // deliberate: the message does not say that the word is unknown
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
                    // deliberate: nothing is escaped here, because the caller typed the text
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

/// The parser's output for a command line without a command, with `stream` on a terminal.
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

// Tests which texts of the command line are translated. This executable replaces the C library's
// gettext; without an entry here the replacement looks the text up as usual.

using Catalogue = std::map<std::string, std::string>;

Catalogue& catalogue() {
    static Catalogue entries;
    return entries;
}

/// Installs a catalogue for one test.
class Translation : public testing::Test {
protected:
    void TearDown() override { catalogue().clear(); }
};

struct Message {
    const char* id;
    std::vector<std::string> words;
};

class TranslatedMessage : public Translation, public testing::WithParamInterface<Message> {};

TEST_P(TranslatedMessage, ComesFromTheCatalogue) {
    catalogue()[GetParam().id] = "<translated>";
    EXPECT_EQ(CommandLine(GetParam().words).errorOutput, "[ERROR] kivctl: <translated>\n");
}

INSTANTIATE_TEST_SUITE_P(UsageErrors, TranslatedMessage,
                         testing::Values(Message{"option '-%s' requires an argument.", {"-c"}},
                                         Message{"option '-%s' requires an argument.", {"-k"}},
                                         Message{"unknown option '-%s'", {"-x"}},
                                         Message{"unknown option '-%s'", {"--foo"}},
                                         Message{"unknown option '-%s'", {"start", "-q"}},
                                         Message{"missing command (use '-h' for help)", {}},
                                         Message{"unknown command '%s'", {"restart"}},
                                         Message{"missing user name", {"exec"}},
                                         Message{"missing user name (or '-a' option)", {"start"}},
                                         Message{"too many arguments", {"start", "-a", "x"}}));

TEST_F(Translation, IsDoneBeforeTheTextIsFilledIn) {
    catalogue()["unknown command '%s'"] = "'%s'? Den Befehl '%s' gibt es nicht";
    EXPECT_EQ(CommandLine({"restart"}).errorOutput,
              "[ERROR] kivctl: 'restart'? Den Befehl 'restart' gibt es nicht\n");
}

TEST_F(Translation, IsNoFormatForPrintf) {
    catalogue()["unknown command '%s'"] = "100% %d %n %s %%";
    EXPECT_EQ(CommandLine({"restart"}).errorOutput, "[ERROR] kivctl: 100% %d %n restart %%\n");
}

TEST_F(Translation, CoversTheWordInBrackets) {
    catalogue()["ERROR"] = "FEHLER";
    EXPECT_EQ(CommandLine({"exec"}).errorOutput, "[FEHLER] kivctl: missing user name\n");
}

std::string help() {
    const CommandLine line({"-h"});
    Captured standardOutput(STDOUT_FILENO);
    printHelp();
    return standardOutput.text();
}

TEST_F(Translation, CoversEveryWordOfTheHelpText) {
    catalogue() = {
        {"Usage:", "U:"},
        {"options", "o"},
        {"command", "c"},
        {"Options:", "O:"},
        {"FILE", "F"},
        {"use configuration file FILE", "u"},
        {"default:", "d:"},
        {"Commands:", "C:"},
        {"run shell within container of user <user>", "1"},
        {"start container for user <user>, or with '-a' for all configured users", "2"},
        {"stop container for user <user>, or with '-a' for all configured users", "3"},
        {"show container status for user <user>, or with '-a' for all configured users", "4"},
        {"show this help", "5"},
        {"show program version", "6"},
    };
    EXPECT_EQ(help(),
              "U: kivctl [o] [c]\n"
              "\n"
              "O:\n"
              "  -c, --config=F        u\n"
              "                        d: /etc/tarnwell/kiv.conf\n"
              "\n"
              "C:\n"
              "  exec   <user>         1\n"
              "  start  <user> | -a    2\n"
              "  stop   <user> | -a    3\n"
              "  status <user> | -a    4\n"
              "  -h, --help            5\n"
              "  -v, --version         6\n");
}

TEST_F(Translation, OfTheFilesNameIsNotCutAtTheColumn) {
    catalogue()["FILE"] = "EINSTELLUNGSDATEI";
    EXPECT_NE(help().find("\n  -c, --config=EINSTELLUNGSDATEIuse configuration file FILE\n"),
              std::string::npos);
}

}  // namespace

extern "C" char* gettext(const char* id) noexcept {
    const auto entry = catalogue().find(id);
    return entry == catalogue().end() ? ::dgettext(nullptr, id) : entry->second.data();
}
