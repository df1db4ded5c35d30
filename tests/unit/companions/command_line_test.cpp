// The option parser of the programs beside kivctl, with a table made for this test.
#include "companions/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "../util/failure_of.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

/// Records which options were used and with which values.
class CompanionCommandLine : public testing::Test {
protected:
    ParsedLine parse(std::initializer_list<const char*> words,
                     OptionPlace place = OptionPlace::Anywhere) {
        texts.assign(words.begin(), words.end());
        std::vector<char*> arguments = {name.data()};
        for (std::string& text : texts) {
            arguments.push_back(text.data());
        }
        arguments.push_back(nullptr);
        used.clear();
        return parseCommandLine(static_cast<int>(texts.size()) + 1, arguments.data(), options,
                                place);
    }

    std::string mistakeIn(std::initializer_list<const char*> words) {
        return failureOf([this, words] { parse(words); });
    }

    std::string name = "program";
    std::vector<std::string> texts;
    std::vector<std::string> used;
    const std::vector<CommandOption> options = {
        {'a', nullptr, nullptr, "of a letter", [this](const char*) { used.emplace_back("a"); }},
        {'b', "both", "VALUE", "of both forms",
         [this](const char* value) { used.push_back("b=" + std::string(value)); }},
        {0, "long-name-of-an-option", nullptr, "of a name",
         [this](const char* value) { used.emplace_back(value == nullptr ? "long" : value); }},
    };
};

TEST_F(CompanionCommandLine, HasOptionsInEitherFormInTheOrderOfTheirUse) {
    const ParsedLine line =
        parse({"--both=1", "-ab", "2", "-b3", "--long-name-of-an-option", "--both", "4", "-a"});
    EXPECT_EQ(line.action, Action::Work);
    EXPECT_THAT(used, ElementsAre("b=1", "a", "b=2", "b=3", "long", "b=4", "a"));
    EXPECT_THAT(line.operands, IsEmpty());
}

TEST_F(CompanionCommandLine, HasOptionsBetweenOperandsUpToTwoDashes) {
    const ParsedLine line = parse({"one", "-a", "two", "--", "-b", ""});
    EXPECT_THAT(used, ElementsAre("a"));
    EXPECT_THAT(line.operands, ElementsAre(StrEq("one"), StrEq("two"), StrEq("-b"), StrEq("")));
}

TEST_F(CompanionCommandLine, EndsItsOptionsAtTheFirstOperandOnRequest) {
    const ParsedLine line = parse({"-a", "one", "-a", "--"}, OptionPlace::BeforeOperands);
    EXPECT_THAT(used, ElementsAre("a"));
    EXPECT_THAT(line.operands, ElementsAre(StrEq("one"), StrEq("-a"), StrEq("--")));
}

TEST_F(CompanionCommandLine, IsReadUpToTheOptionForHelpOrVersion) {
    EXPECT_EQ(parse({"one", "-a", "-h", "--nonsense"}).action, Action::Help);
    EXPECT_THAT(used, ElementsAre("a"));
    EXPECT_EQ(parse({"--help"}).action, Action::Help);
    EXPECT_EQ(parse({"-av", "-b"}).action, Action::Version);
    EXPECT_EQ(parse({"--version"}).action, Action::Version);
}

TEST_F(CompanionCommandLine, NamesTheOptionThatIsNotUnderstood) {
    EXPECT_EQ(mistakeIn({"-x"}), "unknown option '-x'");
    EXPECT_EQ(mistakeIn({"--both=1", "-axb", "one"}), "unknown option '-x'");
    EXPECT_EQ(mistakeIn({"--nonsense=1"}), "unknown option '--nonsense=1'");
    EXPECT_EQ(mistakeIn({"--long-name-of-an-option=1"}),
              "unknown option '--long-name-of-an-option=1'");
    EXPECT_EQ(mistakeIn({"--help=1"}), "unknown option '--help=1'");
    EXPECT_EQ(mistakeIn({"-\x01"}), "unknown option '-\\x01'");
}

TEST_F(CompanionCommandLine, NamesTheOptionWhoseValueIsMissing) {
    EXPECT_EQ(mistakeIn({"-ab"}), "option '-b' requires an argument.");
    EXPECT_EQ(mistakeIn({"one", "--both"}), "option '--both' requires an argument.");
}

TEST_F(CompanionCommandLine, IsShownInColumnsAsWideAsTheLongestOption) {
    EXPECT_EQ(helpText({"program", "OPERAND", "Do nothing."}, options),
              "Usage: program [options] OPERAND\n"
              "\n"
              "Do nothing.\n"
              "\n"
              "Options:\n"
              "  -a                        of a letter\n"
              "  -b, --both=VALUE          of both forms\n"
              "  --long-name-of-an-option  of a name\n"
              "  -h, --help                show this help\n"
              "  -v, --version             show program version\n");
}

TEST_F(CompanionCommandLine, IsShownInTheUsualColumnsOtherwise) {
    EXPECT_EQ(helpText({"program", nullptr, "Do nothing."}, {}),
              "Usage: program [options]\n"
              "\n"
              "Do nothing.\n"
              "\n"
              "Options:\n"
              "  -h, --help            show this help\n"
              "  -v, --version         show program version\n");
}

}  // namespace
