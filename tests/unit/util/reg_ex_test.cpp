#include "util/reg_ex.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "failure_of.h"

namespace {

constexpr const char* kTooLong = "regular expression of more than 65536 bytes";
constexpr const char* kTooDeep = "more than 255 levels of groups in regular expression";
constexpr const char* kTooManyOperators =
    "more than 255 repetition operators in a row in regular expression";

std::string times(const std::string& text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

/// The error text for a refused pattern.
std::string refusal(const std::string& pattern) {
    return failureOf([&] { RegEx(pattern, 0); });
}

TEST(RegEx, MatchesAnywhereInTheText) {
    EXPECT_TRUE(RegEx("b+c", 0).match("xxbbcxx", 0));
}

TEST(RegEx, ObeysThePatternsAnchors) {
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

TEST(RegEx, AcceptsFlagsOfTheLibrary) {
    EXPECT_TRUE(RegEx("ALICE", REG_ICASE).match("alice", 0));
    EXPECT_FALSE(RegEx("^a", 0).match("a", REG_NOTBOL));
}

struct Search {
    const char* pattern;
    std::string text;
    bool found;
};

class Expression : public testing::TestWithParam<Search> {};

TEST_P(Expression, IsSearchedInTheWholeText) {
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
                                         // the library's dot matches any character except this one
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

TEST(RegEx, ReportsWhyItRefusesANulByte) {
    try {
        const RegEx expression(std::string("^a\0b$", 5), 0);
        FAIL() << "compiled";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "NUL byte in regular expression");
    }
}

TEST(RegEx, CompilesPatternsThatARoughEstimateWouldRefuse) {
    EXPECT_TRUE(RegEx("^a*****$", 0).match("aaa", 0));
    EXPECT_TRUE(RegEx("^" + times("(a)", 5'000) + "$", 0).match(std::string(5'000, 'a'), 0));
    std::string names;
    for (int i = 0; i < 4'100; ++i) {
        names += "|user" + std::to_string(i);
    }
    const RegEx listed("^(root" + names + "):", 0);
    EXPECT_TRUE(listed.match("user4099:x", 0));
    EXPECT_FALSE(listed.match("user4100:x", 0));
}

TEST(RegEx, TakesPatternsOf64KibibytesAndNoLongerOnes) {
    EXPECT_TRUE(RegEx("^" + std::string(65'534, 'x') + "$", 0).match(std::string(65'534, 'x'), 0));
    EXPECT_EQ(refusal(std::string(65'537, 'x')), kTooLong);
    EXPECT_EQ(refusal(std::string(65'537, '(')), kTooLong);
}

TEST(RegEx, Takes255LevelsOfGroupsAndNoMore) {
    EXPECT_TRUE(RegEx("^" + times("(", 255) + "a" + times(")", 255) + "$", 0).match("a", 0));
    EXPECT_EQ(refusal(times("(", 256) + "a" + times(")", 256)), kTooDeep);
    EXPECT_EQ(refusal(times("(a*", 256)), kTooDeep);
    EXPECT_EQ(refusal(times("(", 20'000)), kTooDeep);
}

TEST(RegEx, CountsOnlyTheGroupsThatAreOpen) {
    EXPECT_TRUE(RegEx("^" + times("((a))", 300), 0).match(std::string(300, 'a'), 0));
    // an unmatched closing parenthesis is literal and does not change the level
    EXPECT_TRUE(RegEx("^" + times(")", 300) + "$", 0).match(std::string(300, ')'), 0));
    EXPECT_EQ(refusal(times(")", 300) + times("(", 256)), kTooDeep);
}

TEST(RegEx, DoesNotCountLiteralParentheses) {
    for (const char* literal :
         {"[(]", "[^](]", "[]()]", "[[.].](]", "[[:alpha:](]", "[[=(=]]", "\\(", "[\\(]"}) {
        EXPECT_EQ(refusal(times(literal, 300)), "") << literal;
    }
    EXPECT_EQ(refusal(times("\\\\(", 256)), kTooDeep);
    EXPECT_EQ(refusal(times("[a](", 256)), kTooDeep);
    EXPECT_EQ(refusal(times("[[.].]](", 256)), kTooDeep);
}

TEST(RegEx, Takes255RepetitionOperatorsInARowAndNoMore) {
    EXPECT_TRUE(RegEx("a" + times("*", 255), 0).match("aaa", 0));
    EXPECT_TRUE(RegEx("^a" + times("?", 255) + "$", 0).match("a", 0));
    EXPECT_EQ(refusal("^(ab)" + times("{1}", 255) + "$"), "");
    for (const char* repeated : {"a", "(a)", "[a]", "[*]", "\\*", "", "^", "(", "a|", "x{2,3}y"}) {
        for (const char* repetition : {"*", "+", "?", "{2}", "{2,}", "{,3}", "{2,3}"}) {
            EXPECT_EQ(refusal(repeated + times(repetition, 256)), kTooManyOperators)
                << repeated << repetition;
        }
    }
    EXPECT_EQ(refusal("a" + times("*?", 128)), kTooManyOperators);
}

TEST(RegEx, CountsOnlyOperatorsThatFollowEachOther) {
    EXPECT_EQ(refusal(times("a*", 300)), "");
    EXPECT_EQ(refusal(times("[*+?{]", 300)), "");
    EXPECT_EQ(refusal(times("\\*", 300)), "");
}

TEST(RegEx, LeavesUnfinishedPatternsToTheLibrary) {
    for (const char* pattern :
         {"[", "[^", "[[.", "[[.a", "a{", "a{2", "a{2,", "\\", "(", "((a", "*", "{2}"}) {
        EXPECT_NE(refusal(pattern), "") << pattern;
    }
}

}  // namespace
