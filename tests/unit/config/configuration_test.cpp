#include "config/configuration.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "config/file_filters.h"
#include "configuration_file.h"

namespace {

using List = std::list<std::string>;

TEST_F(ConfigurationFile, MayBeEmpty) {
    ASSERT_EQ(load(""), "");
    EXPECT_TRUE(configuration().hide.empty());
    EXPECT_TRUE(configuration().empty.empty());
    EXPECT_TRUE(configuration().bind.empty());
    EXPECT_TRUE(configuration().allowlists.empty());
    EXPECT_TRUE(configuration().filters.empty());
    EXPECT_TRUE(configuration().cap_add.empty());
    EXPECT_TRUE(configuration().cap_drop.empty());
    EXPECT_TRUE(configuration().seccomp.empty());
}

TEST_F(ConfigurationFile, MayHoldCommentsAndEmptyLinesAlone) {
    EXPECT_EQ(load("# a comment\n\n#another\n   # indented\n"), "");
    EXPECT_TRUE(configuration().hide.empty());
}

TEST_F(ConfigurationFile, NamesTheHostTools) {
    ASSERT_EQ(load(""), "");
    EXPECT_EQ(configuration().ipCommand, "ip");
    EXPECT_EQ(configuration().iptablesCommand, "iptables");
    EXPECT_EQ(configuration().sysctlCommand, "sysctl");
}

TEST_F(ConfigurationFile, FillsEveryList) {
    ASSERT_EQ(load("hide\n /a\nempty\n /b\nbind\n /c\ncap_add\n d\ncap_drop\n e\nseccomp\n f g\n"),
              "");
    EXPECT_EQ(configuration().hide, List{"/a"});
    EXPECT_EQ(configuration().empty, List{"/b"});
    EXPECT_EQ(configuration().bind, List{"/c"});
    EXPECT_EQ(configuration().cap_add, List{"d"});
    EXPECT_EQ(configuration().cap_drop, List{"e"});
    EXPECT_EQ(configuration().seccomp, List{"f g"});
}

TEST_F(ConfigurationFile, KeepsItemsInFileOrderAcrossSections) {
    ASSERT_EQ(load("hide\n /z\nbind\n /b\nhide\n /a\n\t/m \r\n"), "");
    EXPECT_EQ(configuration().hide, (List{"/z", "/a", "/m"}));
    EXPECT_EQ(configuration().bind, List{"/b"});
}

TEST_F(ConfigurationFile, GathersAllowlistsByName) {
    ASSERT_EQ(load("allowlist /srv\n a\nallowlist /opt\nallowlist /srv\n b\n"), "");
    EXPECT_EQ(configuration().allowlists.size(), 2U);
    EXPECT_EQ(configuration().allowlists.at("/srv"), (List{"a", "b"}));
    EXPECT_EQ(configuration().allowlists.at("/opt"), List{});
}

TEST_F(ConfigurationFile, ContinuesASectionAfterAComment) {
    ASSERT_EQ(load("hide\n /a\n# comment\n  # comment\n\n /b\n"), "");
    EXPECT_EQ(configuration().hide, (List{"/a", "/b"}));
}

TEST_F(ConfigurationFile, TakesABlankItemForAnEmptyOne) {
    ASSERT_EQ(load("hide\n /a\n   \n"), "");
    EXPECT_EQ(configuration().hide, (List{"/a", ""}));
}

TEST_F(ConfigurationFile, AcceptsBlanksAfterAHeader) {
    ASSERT_EQ(load("hide  \n /a\nallowlist   /srv \n"), "");
    EXPECT_EQ(configuration().hide, List{"/a"});
    EXPECT_EQ(configuration().allowlists.count("/srv"), 1U);
}

TEST_F(ConfigurationFile, AcceptsAnUnknownSectionWithoutItems) {
    EXPECT_EQ(load("hyde\nhide\n /a\n"), "");
}

TEST_F(ConfigurationFile, TakesATabInAHeaderForAPartOfTheWord) {
    EXPECT_EQ(load("allowlist\t/srv\n"), "");
    EXPECT_TRUE(configuration().allowlists.empty());
    EXPECT_EQ(load("allowlist\t/srv\n a\n"), "line 2: not parsing a list");
}

TEST_F(ConfigurationFile, StoresAFiltersExpressionUnchanged) {
    ASSERT_EQ(load("filter\n /etc/x \t ^(${USER}|a b):\n"), "");
    EXPECT_EQ(configuration().filters.at("/etc/x"), "^(${USER}|a b):");
}

TEST_F(ConfigurationFile, KeepsTheLaterOfTwoFilters) {
    ASSERT_EQ(load("filter\n /etc/x a\n /etc/x b\n"), "");
    EXPECT_EQ(configuration().filters.at("/etc/x"), "b");
}

TEST_F(ConfigurationFile, ReadsALastLineWithoutANewline) {
    ASSERT_EQ(load("hide\n /a"), "");
    EXPECT_EQ(configuration().hide, List{"/a"});
}

TEST_F(ConfigurationFile, KeepsBytesThatAreNoText) {
    const std::string odd("/a\0b\xff", 5);
    ASSERT_EQ(load("hide\n " + odd + "\n"), "");
    EXPECT_EQ(configuration().hide, List{odd});
}

TEST_F(ConfigurationFile, TakesLinesOfAMegabyte) {
    const std::string item(1 << 20, 'x');
    ASSERT_EQ(load("hide\n " + item + "\n"), "");
    EXPECT_EQ(configuration().hide, List{item});
    EXPECT_EQ(load(item + "\n " + item + "\n"), "line 2: not parsing a list");
}

struct Fault {
    std::string content;
    std::string message;
};

class ConfigurationFault : public ConfigurationFile, public testing::WithParamInterface<Fault> {};

TEST_P(ConfigurationFault, IsReportedWithItsLineAndKeepsThePreviousContents) {
    ASSERT_EQ(load("hide\n /kept\n"), "");
    EXPECT_EQ(load(GetParam().content), GetParam().message);
    EXPECT_EQ(configuration().hide, List{"/kept"});
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ConfigurationFault,
    testing::Values(Fault{"allowlist\n", "line 1: missing argument to allowlist"},
                    Fault{"allowlist /a /b\n", "line 1: missing argument to allowlist"},
                    Fault{"\n# x\nhide /a\n", "line 3: unexpected arguments"},
                    Fault{"filter /a b\n", "line 1: unexpected arguments"},
                    Fault{"nonsense x\n", "line 1: unexpected arguments"},
                    Fault{" /a\n", "line 1: not parsing a list"},
                    Fault{"   \n", "line 1: not parsing a list"},
                    Fault{"hide\n /a\nhyde\n\n /b\n", "line 5: not parsing a list"},
                    Fault{"HIDE\n /a\n", "line 2: not parsing a list"},
                    Fault{"hide\r\n /a\n", "line 2: not parsing a list"},
                    Fault{"filter\n /etc/x\n", "line 2: value is not a pair"},
                    Fault{"filter\n /etc/x \t \n", "line 2: value is not a pair"},
                    Fault{"filter\n   \n", "line 2: value is not a pair"},
                    Fault{"filter\n /etc/x (\n", "line 2: Unmatched ( or \\("},
                    Fault{"filter\n /etc/x ^(${USER}\n", "line 2: Unmatched ( or \\("}));

TEST_F(ConfigurationFile, ThatCannotBeOpenedIsNamed) {
    try {
        Configuration::load(directory.at("/absent"));
        FAIL() << "loaded";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "cannot open file " + directory.at("/absent"));
    }
}

TEST_F(ConfigurationFile, ThatIsADirectoryIsAReadError) {
    try {
        Configuration::load(directory.path);
        FAIL() << "loaded";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "error while reading from file");
    }
}

TEST(FileFilters, KeepTheirTwoDifferentLists) {
    const std::map<std::string, std::string> wanted = {
        {"/etc/group", "^(root|daemon|bin|sys|adm|tty|www-data|mysql|${USER}):"},
        {"/etc/passwd", "^(root|daemon|bin|sys|man|www-data|mysql|${USER}):"}};
    EXPECT_EQ(builtInFileFilters(), wanted);
}

}  // namespace
