// Lines as editors on other systems, broken disks and hurried hands leave them.
#include <gtest/gtest.h>

#include "configuration_file.h"

namespace {

using List = std::list<std::string>;

TEST_F(ConfigurationFile, TrimsCarriageReturnsFromItems) {
    ASSERT_EQ(load("hide\n /a\r\n\t/b\r\n"), "");
    EXPECT_EQ(configuration().hide, (List{"/a", "/b"}));
}

TEST_F(ConfigurationFile, TrimsAllSixWhiteSpaceCharacters) {
    ASSERT_EQ(load("hide\n \t\f\r\v/a b\v\r\f\t \n"), "");
    EXPECT_EQ(configuration().hide, List{"/a b"});
}

TEST_F(ConfigurationFile, KeepsACarriageReturnInTheNameOfAnAllowlist) {
    ASSERT_EQ(load("allowlist /srv\r\n a\r\n"), "");
    EXPECT_EQ(configuration().allowlists.count("/srv"), 0U);
    EXPECT_EQ(configuration().allowlists.at("/srv\r"), List{"a"});
}

TEST_F(ConfigurationFile, TakesACarriageReturnAloneForAnItemThatIsEmpty) {
    ASSERT_EQ(load("hide\n /a\n\r\n /b\n"), "");
    EXPECT_EQ(configuration().hide, (List{"/a", "", "/b"}));
}

TEST_F(ConfigurationFile, TakesEveryKindOfWhiteSpaceForAnIndentation) {
    ASSERT_EQ(load("hide\n\t/a\n\v/b\n\f/c\n\r/d\n /e\n"), "");
    EXPECT_EQ(configuration().hide, (List{"/a", "/b", "/c", "/d", "/e"}));
}

TEST_F(ConfigurationFile, TakesALineThatBeginsWithANulByteForAnUnknownHeader) {
    EXPECT_EQ(load(std::string("hide\n /a\n\0\n /b\n", 15)), "line 4: not parsing a list");
}

TEST_F(ConfigurationFile, DoesNotTakeAHeaderCutOffAtANulByteForAKeyword) {
    EXPECT_EQ(load(std::string("hide\0x\n /a\n", 11)), "line 2: not parsing a list");
}

TEST_F(ConfigurationFile, TakesALineThatBeginsWithANonAsciiByteForAHeader) {
    EXPECT_EQ(load("hide\n /a\n\xa0/b\n"), "");
    EXPECT_EQ(configuration().hide, List{"/a"});
    EXPECT_EQ(load("hide\n\xff /b\n"), "line 2: unexpected arguments");
}

TEST_F(ConfigurationFile, DoesNotSkipAByteOrderMark) {
    EXPECT_EQ(load("\xef\xbb\xbfhide\n /a\n"), "line 2: not parsing a list");
}

TEST_F(ConfigurationFile, KeepsInvalidTextInTheNameOfAnAllowlist) {
    ASSERT_EQ(load("allowlist /s\xc3\x28\n \xfe\n"), "");
    EXPECT_EQ(configuration().allowlists.at("/s\xc3\x28"), List{"\xfe"});
}

TEST_F(ConfigurationFile, RefusesANulByteInAnExpression) {
    EXPECT_EQ(load(std::string("filter\n /etc/x a\0b\n", 19)),
              "line 2: NUL byte in regular expression");
}

TEST_F(ConfigurationFile, TakesANulByteInAFiltersPathForAPartOfIt) {
    ASSERT_EQ(load(std::string("filter\n /etc/x\0y a\n", 19)), "");
    EXPECT_EQ(configuration().filters.at(std::string("/etc/x\0y", 8)), "a");
}

TEST_F(ConfigurationFile, TakesAHeaderOfAMegabyteWithAnArgumentForAnError) {
    EXPECT_EQ(load(std::string(1 << 20, 'h') + " x\n"), "line 1: unexpected arguments");
}

TEST_F(ConfigurationFile, TakesACommentOfAMegabyte) {
    ASSERT_EQ(load("hide\n#" + std::string(1 << 20, ' ') + "\n /a\n"), "");
    EXPECT_EQ(configuration().hide, List{"/a"});
}

TEST_F(ConfigurationFile, ReadsALastHeaderWithoutANewline) {
    ASSERT_EQ(load("hide\n /a\nallowlist /srv"), "");
    EXPECT_EQ(configuration().allowlists.count("/srv"), 1U);
    EXPECT_EQ(load("hide\n /a\nallowlist"), "line 3: missing argument to allowlist");
}

TEST_F(ConfigurationFile, CountsEveryLineThatItReads) {
    std::string content = "hide\n";
    for (int i = 0; i < 5'000; ++i) {
        content += "\n# comment\n   # indented comment\n /item\n";
    }
    EXPECT_EQ(load(content + "hide /a\n"), "line 20002: unexpected arguments");
}

}  // namespace
