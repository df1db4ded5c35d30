// Which texts of the command line pass through the message catalogue. The C library's gettext is
// overlaid for this executable: without an entry here it looks the text up as usual.
#include <gtest/gtest.h>
#include <libintl.h>

#include <map>
#include <string>
#include <vector>

#include "cli/options.h"
#include "command_line.h"

namespace {

using Catalogue = std::map<std::string, std::string>;

Catalogue& catalogue() {
    static Catalogue entries;
    return entries;
}

/// Puts a catalogue in place for one test.
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
    testing::internal::CaptureStdout();
    printHelp();
    return testing::internal::GetCapturedStdout();
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
