#include "util/reg_ex.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(RegEx, MatchesAnywhereInTheText) {
    EXPECT_TRUE(RegEx("b+c", 0).match("xxbbcxx", 0));
}

TEST(RegEx, AnchorsItselfWhereThePatternSaysSo) {
    const RegEx pattern("^(root|alice):", 0);
    EXPECT_TRUE(pattern.match("alice:x:1000", 0));
    EXPECT_FALSE(pattern.match("malice:x:1000", 0));
}

TEST(RegEx, OfAnInvalidPatternThrowsTheLibrarysText) {
    try {
        const RegEx pattern("(", 0);
        FAIL() << "compiled";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Unmatched ( or \\(");
    }
}

TEST(RegEx, MatchesALineWithANulByteOverItsWholeLength) {
    EXPECT_TRUE(RegEx("tail$", 0).match(std::string("head\0tail", 9), 0));
    EXPECT_FALSE(RegEx("head$", 0).match(std::string("head\0tail", 9), 0));
}

TEST(RegEx, RefusesAPatternWithANulByte) {
    EXPECT_THROW(RegEx(std::string("a\0b", 3), 0), std::runtime_error);
}

TEST(RegEx, MatchesTheEmptyText) {
    EXPECT_TRUE(RegEx("^$", 0).match("", 0));
}

TEST(RegEx, TakesFlagsOfTheLibrary) {
    EXPECT_TRUE(RegEx("ALICE", REG_ICASE).match("alice", 0));
    EXPECT_FALSE(RegEx("^a", 0).match("a", REG_NOTBOL));
}

struct Search {
    const char* pattern;
    std::string text;
    bool found;
};

class Expression : public testing::TestWithParam<Search> {};

TEST_P(Expression, IsLookedForInTheWholeText) {
    EXPECT_EQ(RegEx(GetParam().pattern, 0).match(GetParam().text, 0), GetParam().found);
}

INSTANTIATE_TEST_SUITE_P(
    Extended, Expression,
    testing::Values(Search{"a|b", "xb", true}, Search{"a|b", "x|", false},
                    Search{"^(ab)+$", "abab", true}, Search{"^(ab)+$", "aba", false},
                    Search{"^ab?c$", "ac", true}, Search{"^a{2}$", "aa", true},
                    Search{"^a{2}$", "a{2}", false}, Search{"^[[:digit:]]+$", "0123", true},
                    Search{"^[^:]+:", ":", false}, Search{"\\.", "a.b", true},
                    Search{"\\.", "ab", false}, Search{"^root:", "xroot:", false},
                    Search{"A", "a", false}, Search{"", "", true}, Search{"", "abc", true},
                    Search{"^$", "abc", false}));

INSTANTIATE_TEST_SUITE_P(LineEnds, Expression,
                         testing::Values(Search{"^b", "a\nb", false}, Search{"a$", "a\nb", false},
                                         Search{"a.b", "a\nb", true}, Search{"b$", "a\nb", true}));

INSTANTIATE_TEST_SUITE_P(NulBytes, Expression,
                         testing::Values(Search{"^head", std::string("head\0tail", 9), true},
                                         Search{"tail", std::string("head\0tail", 9), true},
                                         Search{"^tail", std::string("head\0tail", 9), false},
                                         Search{"^head[^x]tail$", std::string("head\0tail", 9),
                                                true},
                                         // the library's dot stands for any character but this one
                                         Search{"^head.tail$", std::string("head\0tail", 9), false},
                                         Search{"^$", std::string(1, '\0'), false}));

struct Fault {
    const char* pattern;
    const char* text;
};

class FaultyExpression : public testing::TestWithParam<Fault> {};

TEST_P(FaultyExpression, IsRefusedWithTheLibrarysText) {
    try {
        const RegEx expression(GetParam().pattern, 0);
        FAIL() << "compiled";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), GetParam().text);
    }
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultyExpression,
                         testing::Values(Fault{"(a", "Unmatched ( or \\("},
                                         Fault{"[a", "Unmatched [, [^, [:, [., or [="},
                                         Fault{"a\\", "Trailing backslash"},
                                         Fault{"[b-a]", "Invalid range end"},
                                         Fault{"*", "Invalid preceding regular expression"},
                                         Fault{"a{2,1}", "Invalid content of \\{\\}"},
                                         Fault{"[[:nothing:]]", "Invalid character class name"}));

TEST(RegEx, MatchesAgainAndAgain) {
    const RegEx expression("^a+$", 0);
    EXPECT_TRUE(expression.match("aaa", 0));
    EXPECT_FALSE(expression.match("aab", 0));
    EXPECT_TRUE(expression.match("a", 0));
}

TEST(RegEx, TakesLongTexts) {
    EXPECT_TRUE(RegEx("b$", 0).match(std::string(1'000'000, 'a') + "b", 0));
}

TEST(RegEx, SaysWhyItRefusesANulByte) {
    try {
        const RegEx expression(std::string("^a\0b$", 5), 0);
        FAIL() << "compiled";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "NUL byte in regular expression");
    }
}

}  // namespace
