#include "config/configuration.h"

#include <gtest/gtest.h>

#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "../fs/temporary_directory.h"
#include "../util/failure_of.h"

namespace {

class ConfigurationFile : public testing::Test {
protected:
    /// Loads a file with this content. Returns the failure's text, or "" for success.
    std::string load(const std::string& content) {
        return failureOf([&] { Configuration::load(directory.write("/kiv.conf", content)); });
    }

    TemporaryDirectory directory;
};

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

TEST_F(ConfigurationFile, MayHaveOnlyCommentsAndEmptyLines) {
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

TEST_F(ConfigurationFile, MergesAllowlistsOfTheSameName) {
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

TEST_F(ConfigurationFile, KeepsBytesThatAreNotText) {
    const std::string odd("/a\0b\xff", 5);
    ASSERT_EQ(load("hide\n " + odd + "\n"), "");
    EXPECT_EQ(configuration().hide, List{odd});
}

TEST_F(ConfigurationFile, AcceptsLinesOfAMegabyte) {
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

// Which section an item belongs to, and the parts of a filter's item.

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

TEST_F(ConfigurationFile, DoesNotCheckCapabilitiesAndSystemCalls) {
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
    // unreplaced, "{USER}" after an anchor or a "|" would be a repetition of nothing
    ASSERT_EQ(load("filter\n /a ^${USER}:|${USER}$\n"), "");
    EXPECT_EQ(configuration().filters.at("/a"), "^${USER}:|${USER}$");
}

TEST_F(ConfigurationFile, ChecksAnExpressionWithAWordInPlaceOfTheUser) {
    // replaced by an empty text, it would leave a repetition of nothing
    EXPECT_EQ(load("filter\n /a ^(${USER}*|b)\n"), "");
}

TEST_F(ConfigurationFile, ReportsABadBracketWithTheLibrarysText) {
    EXPECT_EQ(load("\nfilter\n /a [b\n"), "line 3: Unmatched [, [^, [:, [., or [=");
}

TEST_F(ConfigurationFile, ReportsABadRepetitionWithTheLibrarysText) {
    EXPECT_EQ(load("filter\n /a b\n /c d{2,1}\n"), "line 3: Invalid content of \\{\\}");
}

// Lines as editors of other systems, broken disks and typing errors produce them.

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

TEST_F(ConfigurationFile, TakesALoneCarriageReturnForAnEmptyItem) {
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

TEST_F(ConfigurationFile, RefusesAHeaderOfAMegabyteWithAnArgument) {
    EXPECT_EQ(load(std::string(1 << 20, 'h') + " x\n"), "line 1: unexpected arguments");
}

TEST_F(ConfigurationFile, AcceptsACommentOfAMegabyte) {
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

// The process-wide object is replaced as a whole or not changed.

using List = std::list<std::string>;

constexpr const char* kEverything =
    "allowlist /srv\n a\nhide\n /b\nempty\n /c\nbind\n /d\ncap_add\n e\ncap_drop\n f\n"
    "seccomp\n g\nfilter\n /h i\n";

void expectEverything() {
    const Configuration& values = configuration();
    EXPECT_EQ(values.allowlists, (std::map<std::string, List>{{"/srv", {"a"}}}));
    EXPECT_EQ(values.hide, List{"/b"});
    EXPECT_EQ(values.empty, List{"/c"});
    EXPECT_EQ(values.bind, List{"/d"});
    EXPECT_EQ(values.cap_add, List{"e"});
    EXPECT_EQ(values.cap_drop, List{"f"});
    EXPECT_EQ(values.seccomp, List{"g"});
    EXPECT_EQ(values.filters, (std::map<std::string, std::string>{{"/h", "i"}}));
}

TEST_F(ConfigurationFile, FillsEveryFieldFromItsOwnSection) {
    ASSERT_EQ(load(kEverything), "");
    expectEverything();
}

TEST_F(ConfigurationFile, ReplacesAllEarlierContents) {
    ASSERT_EQ(load(kEverything), "");
    ASSERT_EQ(load("hide\n /other\n"), "");
    EXPECT_EQ(configuration().hide, List{"/other"});
    EXPECT_TRUE(configuration().allowlists.empty());
    EXPECT_TRUE(configuration().empty.empty());
    EXPECT_TRUE(configuration().bind.empty());
    EXPECT_TRUE(configuration().cap_add.empty());
    EXPECT_TRUE(configuration().cap_drop.empty());
    EXPECT_TRUE(configuration().seccomp.empty());
    EXPECT_TRUE(configuration().filters.empty());
    EXPECT_EQ(configuration().ipCommand, "ip");
    EXPECT_EQ(configuration().iptablesCommand, "iptables");
    EXPECT_EQ(configuration().sysctlCommand, "sysctl");
}

TEST_F(ConfigurationFile, WithAFaultKeepsAllEarlierContents) {
    ASSERT_EQ(load(kEverything), "");
    EXPECT_EQ(load("hide\n /x\nbind\n /y\nallowlist /z\n z\nfilter\n /x y\n /x\n"),
              "line 9: value is not a pair");
    expectEverything();
}

TEST_F(ConfigurationFile, ThatCannotBeOpenedKeepsTheEarlierContents) {
    ASSERT_EQ(load(kEverything), "");
    EXPECT_THROW(Configuration::load(directory.at("/absent")), std::runtime_error);
    expectEverything();
}

TEST_F(ConfigurationFile, ThatCannotBeReadKeepsTheEarlierContents) {
    ASSERT_EQ(load(kEverything), "");
    EXPECT_THROW(Configuration::load(directory.path), std::runtime_error);
    expectEverything();
}

TEST_F(ConfigurationFile, BelowARegularFileCannotBeOpened) {
    const std::string path = directory.write("/kiv.conf", "") + "/below";
    try {
        Configuration::load(path);
        FAIL() << "loaded";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "cannot open file " + path);
    }
}

TEST_F(ConfigurationFile, ReportsTheFirstOfSeveralFaults) {
    EXPECT_EQ(load("hide\n /a\nbind x\nallowlist\n"), "line 3: unexpected arguments");
}

TEST_F(ConfigurationFile, DoesNotLetItsKeywordsChangeTheHostTools) {
    EXPECT_EQ(load("ipCommand\n /opt/ip\n"), "line 2: not parsing a list");
    ASSERT_EQ(load("ipCommand\niptablesCommand\nsysctlCommand\n"), "");
    EXPECT_EQ(configuration().ipCommand, "ip");
}

// Configuration::read with somebody who takes the items.

struct Seen {
    Configuration::Section section;
    std::string item;
    bool operator==(const Seen&) const = default;
};

class ItemTaker : public testing::Test {
protected:
    Configuration read(const std::string& content) {
        return Configuration::read(directory.write("/kiv.conf", content),
                                   [this](Configuration::Section section, const std::string& item) {
                                       if (item == "refused") {
                                           throw std::runtime_error("no, not '" + item + "'");
                                       }
                                       seen.push_back({section, item});
                                   });
    }

    std::string fault(const std::string& content) {
        return failureOf([&] { read(content); });
    }

    std::vector<Seen> seen;
    TemporaryDirectory directory;
};

TEST_F(ItemTaker, IsGivenTheItemsOfEveryListInFileOrder) {
    read(
        "seccomp\n f g\nhide\n /a\n\t/b \nempty\n /c\nbind\n /d\ncap_add\n e\ncap_drop\n h\nhide\n"
        " /i\n");
    EXPECT_EQ(seen, (std::vector<Seen>{{&Configuration::seccomp, "f g"},
                                       {&Configuration::hide, "/a"},
                                       {&Configuration::hide, "/b"},
                                       {&Configuration::empty, "/c"},
                                       {&Configuration::bind, "/d"},
                                       {&Configuration::cap_add, "e"},
                                       {&Configuration::cap_drop, "h"},
                                       {&Configuration::hide, "/i"}}));
}

TEST_F(ItemTaker, IsGivenNeitherNamesOfAllowlistsNorFiltersNorComments) {
    read("hide\n # x\nallowlist /etc\n refused\nfilter\n refused x\n /etc/x refused\n");
    EXPECT_TRUE(seen.empty());
}

TEST_F(ItemTaker, IsGivenALineOfBlanksAsAnEmptyItem) {
    read("cap_add\n\n  \t \n");
    EXPECT_EQ(seen, (std::vector<Seen>{{&Configuration::cap_add, ""}}));
}

TEST_F(ItemTaker, MayRefuseAnItemWhichIsReportedWithItsLine) {
    EXPECT_EQ(fault("# x\nhide\n /a\n\n refused\n /b\n"), "line 5: no, not 'refused'");
    EXPECT_EQ(seen, (std::vector<Seen>{{&Configuration::hide, "/a"}}));
}

TEST_F(ItemTaker, LeavesOnlyTheOtherItemsInTheResult) {
    const Configuration read =
        this->read("hide\n /a\nallowlist /etc\n refused\nfilter\n /etc/x y\n");
    EXPECT_TRUE(read.hide.empty());
    EXPECT_EQ(read.filters.at("/etc/x"), "y");
    EXPECT_EQ(read.allowlists.at("/etc"), std::list<std::string>{"refused"});
}

TEST_F(ItemTaker, DoesNotChangeTheProcessesConfiguration) {
    Configuration::load(directory.write("/other.conf", "hide\n /kept\n"));
    read("hide\n /a\n");
    EXPECT_EQ(configuration().hide, std::list<std::string>{"/kept"});
}

TEST_F(ConfigurationFile, IsOnlyValidatedOnRequest) {
    ASSERT_EQ(load("hide\n /kept\n"), "");
    const auto validate = [this](const std::string& content) {
        const std::string path = directory.write("/other.conf", content);
        return failureOf([&path] { Configuration::validate(path); });
    };
    EXPECT_EQ(validate("hide\n /a\nfilter\n /etc/x y\n"), "");
    EXPECT_EQ(validate("hide\n /a\nunknown\n /b\n"), "line 4: not parsing a list");
    EXPECT_EQ(configuration().hide, std::list<std::string>{"/kept"});
}

}  // namespace
