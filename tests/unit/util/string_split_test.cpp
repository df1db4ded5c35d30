#include <gtest/gtest.h>

#include <list>
#include <vector>

#include "util/string_util.h"

namespace {

using Pieces = std::vector<std::string>;

struct Split {
    const char* text;
    const char* separators;
    Pieces pieces;
};

class WordsOf : public testing::TestWithParam<Split> {};

TEST_P(WordsOf, AreTheTextsBetweenSeparators) {
    EXPECT_EQ(StringUtil::split<Pieces>(GetParam().text, GetParam().separators, /*dropEmpty=*/true,
                                        /*keepSeparators=*/false),
              GetParam().pieces);
}

TEST_P(WordsOf, AreTheSameAsAList) {
    const auto list = StringUtil::split<std::list<std::string>>(
        GetParam().text, GetParam().separators, /*dropEmpty=*/true, /*keepSeparators=*/false);
    EXPECT_EQ(Pieces(list.begin(), list.end()), GetParam().pieces);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, WordsOf,
    testing::Values(Split{"", " ", {}}, Split{" ", " ", {}}, Split{"\t \t", " \t", {}},
                    Split{"a", " ", {"a"}}, Split{" a", " ", {"a"}}, Split{"a ", " ", {"a"}},
                    Split{"a  b", " ", {"a", "b"}}, Split{"a\tb", " ", {"a\tb"}},
                    Split{"a \t b", " \t", {"a", "b"}},
                    Split{"alice 100.64.0.4/30\tx", " \t", {"alice", "100.64.0.4/30", "x"}},
                    Split{"a b", "", {"a b"}}, Split{"", "", {}}, Split{"a\nb", " ", {"a\nb"}},
                    Split{"\xc3\xa4 \xc3\xb6", " ", {"\xc3\xa4", "\xc3\xb6"}}));

struct FlaggedSplit {
    const char* text;
    bool dropEmpty;
    bool keepSeparators;
    Pieces pieces;
};

class PiecesOf : public testing::TestWithParam<FlaggedSplit> {};

TEST_P(PiecesOf, FollowTheFlags) {
    EXPECT_EQ(StringUtil::split<Pieces>(GetParam().text, ",;", GetParam().dropEmpty,
                                        GetParam().keepSeparators),
              GetParam().pieces);
}

INSTANTIATE_TEST_SUITE_P(
    Flags, PiecesOf,
    testing::Values(FlaggedSplit{"", false, false, {""}}, FlaggedSplit{",", false, false, {"", ""}},
                    FlaggedSplit{"a,", false, false, {"a", ""}},
                    FlaggedSplit{",;a", false, false, {"", "", "a"}},
                    FlaggedSplit{"", false, true, {""}}, FlaggedSplit{"", true, true, {}},
                    FlaggedSplit{",", true, true, {","}},
                    FlaggedSplit{",", false, true, {"", ",", ""}},
                    FlaggedSplit{"a,;b", true, true, {"a", ",", ";", "b"}},
                    FlaggedSplit{"a,;b", false, true, {"a", ",", "", ";", "b"}},
                    FlaggedSplit{"a,b;", true, true, {"a", ",", "b", ";"}}));

TEST(StringUtilSplit, SeparatesAtANulByteWhenAsked) {
    const std::string text("a\0b", 3);
    EXPECT_EQ(StringUtil::split<Pieces>(text, std::string(1, '\0'), true, false),
              (Pieces{"a", "b"}));
}

TEST(StringUtilSplit, TakesLongTexts) {
    std::string text;
    for (int word = 0; word < 100'000; ++word) {
        text += " x";
    }
    EXPECT_EQ(StringUtil::split<Pieces>(text, " ", true, false), Pieces(100'000, "x"));
}

}  // namespace
