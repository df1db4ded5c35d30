// Command lines that are right, in all their forms.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "command_line.h"

namespace {

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

// only exec takes whatever stands there; for the others "-a" and a longer text are two things
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

}  // namespace
