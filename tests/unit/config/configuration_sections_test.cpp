// Which section an item belongs to, and what a filter's item is made of.
#include <gtest/gtest.h>

#include "configuration_file.h"

namespace {

using List = std::list<std::string>;

TEST_F(ConfigurationFile, EndsAFilterSectionAtTheNextHeader) {
    ASSERT_EQ(load("filter\n /etc/x a\nhide\n /b c\n"), "");
    EXPECT_EQ(configuration().hide, List{"/b c"});
    EXPECT_EQ(configuration().filters.size(), 1U);
}

TEST_F(ConfigurationFile, EndsAListAtAFilterSection) {
    ASSERT_EQ(load("hide\n /a\nfilter\n /etc/x b\n"), "");
    EXPECT_EQ(configuration().hide, List{"/a"});
    EXPECT_EQ(configuration().filters.at("/etc/x"), "b");
}

TEST_F(ConfigurationFile, EndsAFilterSectionAtAnAllowlist) {
    ASSERT_EQ(load("filter\nallowlist /srv\n a b\n"), "");
    EXPECT_EQ(configuration().allowlists.at("/srv"), List{"a b"});
}

TEST_F(ConfigurationFile, EndsAFilterSectionAtAnUnknownHeader) {
    EXPECT_EQ(load("filter\n /a b\nfilters\n /c d\n"), "line 4: not parsing a list");
}

TEST_F(ConfigurationFile, ContinuesAFilterSectionAfterAComment) {
    ASSERT_EQ(load("filter\n /a b\n# comment\n  # /x (\n\n /c d\n"), "");
    EXPECT_EQ(configuration().filters,
              (std::map<std::string, std::string>{{"/a", "b"}, {"/c", "d"}}));
}

TEST_F(ConfigurationFile, ContinuesAnAllowlistAfterAComment) {
    ASSERT_EQ(load("allowlist /srv\n a\n#hide\n b\n"), "");
    EXPECT_EQ(configuration().allowlists.at("/srv"), (List{"a", "b"}));
}

TEST_F(ConfigurationFile, TakesACommentOfSeveralWordsForAComment) {
    EXPECT_EQ(load("# hide /a\n#hide /b\n"), "");
}

TEST_F(ConfigurationFile, TakesANumberSignInsideAnItemLiterally) {
    ASSERT_EQ(load("hide\n /a # b\n"), "");
    EXPECT_EQ(configuration().hide, List{"/a # b"});
}

TEST_F(ConfigurationFile, TakesANumberSignAfterAHeaderForAnArgument) {
    EXPECT_EQ(load("hide # these\n"), "line 1: unexpected arguments");
}

TEST_F(ConfigurationFile, AcceptsIndentedCommentsBeforeTheFirstHeader) {
    EXPECT_EQ(load("  # indented\nhide\n /a\n"), "");
    EXPECT_EQ(configuration().hide, List{"/a"});
}

TEST_F(ConfigurationFile, OrdersAllowlistsByTheBytesOfTheirNames) {
    ASSERT_EQ(load("allowlist /b\nallowlist /\xc3\xa4\nallowlist /B\nallowlist /a/b\n"
                   "allowlist /a\n"),
              "");
    List names;
    for (const auto& [name, items] : configuration().allowlists) {
        names.push_back(name);
    }
    EXPECT_EQ(names, (List{"/B", "/a", "/a/b", "/b", "/\xc3\xa4"}));
}

TEST_F(ConfigurationFile, KeepsItemsThatAreNamedTwice) {
    ASSERT_EQ(load("bind\n /a\n /b\n /a\n"), "");
    EXPECT_EQ(configuration().bind, (List{"/a", "/b", "/a"}));
}

TEST_F(ConfigurationFile, DoesNotLookIntoCapabilitiesAndSystemCalls) {
    ASSERT_EQ(load("cap_add\n no such (capability\nseccomp\n ((\n"), "");
    EXPECT_EQ(configuration().cap_add, List{"no such (capability"});
    EXPECT_EQ(configuration().seccomp, List{"(("});
}

TEST_F(ConfigurationFile, SplitsAFilterAtItsFirstBlankOrTab) {
    ASSERT_EQ(load("filter\n /a\tb c\n /d e\tf\n"), "");
    EXPECT_EQ(configuration().filters.at("/a"), "b c");
    EXPECT_EQ(configuration().filters.at("/d"), "e\tf");
}

TEST_F(ConfigurationFile, SkipsAllWhiteSpaceBeforeAnExpression) {
    ASSERT_EQ(load("filter\n /a \v\f\r\tb\n"), "");
    EXPECT_EQ(configuration().filters.at("/a"), "b");
}

TEST_F(ConfigurationFile, TakesOtherWhiteSpaceForAPartOfAFiltersPath) {
    EXPECT_EQ(load("filter\n /a\vb\n"), "line 2: value is not a pair");
    ASSERT_EQ(load("filter\n /a\vb c\n"), "");
    EXPECT_EQ(configuration().filters.at("/a\vb"), "c");
}

TEST_F(ConfigurationFile, ReplacesTheUserEverywhereBeforeItChecksAnExpression) {
    // as it stands, "{USER}" after an anchor or a "|" would be a repetition of nothing
    ASSERT_EQ(load("filter\n /a ^${USER}:|${USER}$\n"), "");
    EXPECT_EQ(configuration().filters.at("/a"), "^${USER}:|${USER}$");
}

TEST_F(ConfigurationFile, ChecksAnExpressionWithAWordInPlaceOfTheUser) {
    // an empty text in that place would leave a repetition of nothing
    EXPECT_EQ(load("filter\n /a ^(${USER}*|b)\n"), "");
}

TEST_F(ConfigurationFile, ReportsABadBracketWithTheLibrarysText) {
    EXPECT_EQ(load("\nfilter\n /a [b\n"), "line 3: Unmatched [, [^, [:, [., or [=");
}

TEST_F(ConfigurationFile, ReportsABadRepetitionWithTheLibrarysText) {
    EXPECT_EQ(load("filter\n /a b\n /c d{2,1}\n"), "line 3: Invalid content of \\{\\}");
}

}  // namespace
