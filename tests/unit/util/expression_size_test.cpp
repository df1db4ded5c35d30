// Expressions for which regcomp(3) would take all memory or all of the stack.
#include "util/expression_size.h"

#include <gtest/gtest.h>

#include <string>

#include "failure_of.h"
#include "util/reg_ex.h"

namespace {

std::string times(const std::string& text, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) {
        result += text;
    }
    return result;
}

TEST(ModestExpression, IsWhatAnAdministratorWrites) {
    EXPECT_TRUE(isModestExpression("^(root|daemon|bin|sys|man|www-data|mysql|user):"));
    EXPECT_TRUE(isModestExpression("[0-9]{1,3}(\\.[0-9]{1,3}){3}"));
    EXPECT_TRUE(isModestExpression(times("[0-9]{1,3}", 100)));
    EXPECT_TRUE(isModestExpression(times("alice|", 4'000)));
    EXPECT_TRUE(isModestExpression(times("x", 100'000)));
}

TEST(ModestExpression, HasNoRepetitionsThatMultiplyWithoutEnd) {
    EXPECT_FALSE(isModestExpression("(((a{255}){255}){255})"));
    EXPECT_FALSE(isModestExpression("a" + times("{2}", 30)));
    EXPECT_FALSE(isModestExpression("a" + times("+", 30)));
    EXPECT_FALSE(isModestExpression("([]a]{200}[[:alpha:]]{200}){1000}"));
    EXPECT_FALSE(isModestExpression("((){255}){255}"));
    EXPECT_TRUE(isModestExpression("a{255}b{255}c{255}"));
}

TEST(ModestExpression, HasNoTensOfThousandsOfBranches) {
    EXPECT_FALSE(isModestExpression(times("a|", 20'000)));
    EXPECT_FALSE(isModestExpression(times("a?", 20'000)));
    EXPECT_FALSE(isModestExpression("a{0,32767}"));
    EXPECT_FALSE(isModestExpression("(a?){32767}"));
}

TEST(ModestExpression, HasNoThousandsOfLevels) {
    EXPECT_FALSE(isModestExpression(times("(", 20'000) + "a" + times(")", 20'000)));
    EXPECT_FALSE(isModestExpression(times("(", 20'000)));
    EXPECT_FALSE(isModestExpression("a" + times("*", 1'000)));
    EXPECT_TRUE(isModestExpression(times("(", 200) + "a" + times(")", 200)));
}

TEST(ModestExpression, HasNoRepetitionsOfRepetitionsOfRepetitions) {
    EXPECT_FALSE(isModestExpression("a" + times("?", 15) + times("+", 4)));
    EXPECT_FALSE(isModestExpression("(((((a*)?)*)?)+)"));
    EXPECT_TRUE(isModestExpression("((([0-9]{1,3},)*;)?x)+"));
}

TEST(ModestExpression, IsNotMadeOfEndlessParenthesesThatCloseNothing) {
    EXPECT_FALSE(isModestExpression(times(")", 1'000'000)));
}

TEST(ModestExpression, CountsABracketAsOneElement) {
    EXPECT_TRUE(isModestExpression(times("[(]", 1'000)));
    EXPECT_TRUE(isModestExpression(times("[]()]", 1'000)));
    EXPECT_TRUE(isModestExpression(times("[^](]", 1'000)));
    EXPECT_TRUE(isModestExpression(times("[[.].](]", 1'000)));
    EXPECT_TRUE(isModestExpression(times("\\(", 1'000)));
}

TEST(ModestExpression, IsJudgedAlsoWhereItEndsTooSoon) {
    for (const char* text :
         {"[", "[^", "[[.", "a{", "a{2", "a{2,", "\\", "(", "((a", "*", "{2}", ""}) {
        EXPECT_TRUE(isModestExpression(text)) << text;
    }
}

TEST(RegExOfAnExpressionThatIsNotModest, ThrowsTheLibrarysTextForIt) {
    EXPECT_EQ(failureOf([] { RegEx(times("(", 20'000), 0); }), "Regular expression too big");
    EXPECT_EQ(failureOf([] { RegEx("(((a{255}){255}){255})", 0); }), "Regular expression too big");
}

}  // namespace
