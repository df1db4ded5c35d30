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

}  // namespace
