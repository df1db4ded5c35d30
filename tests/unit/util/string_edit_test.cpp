#include <gtest/gtest.h>

#include <clocale>
#include <stdexcept>

#include "util/string_util.h"

namespace {

constexpr const char* kBlanks = " \t\n\f\r\v";

struct Trimmed {
    std::string text;
    std::string characters;
    std::string result;
};

class TrimmedText : public testing::TestWithParam<Trimmed> {};

TEST_P(TrimmedText, HasLostTheCharactersAtBothEnds) {
    std::string text = GetParam().text;
    StringUtil::trim(text, GetParam().characters);
    EXPECT_EQ(text, GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, TrimmedText,
    testing::Values(Trimmed{"", kBlanks, ""}, Trimmed{" ", kBlanks, ""}, Trimmed{"a", kBlanks, "a"},
                    Trimmed{" a", kBlanks, "a"}, Trimmed{"a ", kBlanks, "a"},
                    Trimmed{"a \t b", kBlanks, "a \t b"}, Trimmed{"\r\na\r\n", kBlanks, "a"},
                    Trimmed{"\v\f\t a", kBlanks, "a"}, Trimmed{" a ", "", " a "},
                    Trimmed{"xyaxy", "yx", "a"},
                    Trimmed{std::string("\0a\0", 3), kBlanks, std::string("\0a\0", 3)},
                    Trimmed{std::string("\0a\0", 3), std::string(1, '\0'), "a"},
                    // a byte of a longer character is not a blank
                    Trimmed{"\xc2\xa0y", kBlanks, "\xc2\xa0y"}));

struct Replacement {
    std::string from;
    std::string to;
    std::string subject;
    std::string result;
};

class ReplacedText : public testing::TestWithParam<Replacement> {};

TEST_P(ReplacedText, HasEveryOccurrenceReplaced) {
    std::string subject = GetParam().subject;
    StringUtil::replaceAll(GetParam().from, GetParam().to, subject);
    EXPECT_EQ(subject, GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ReplacedText,
    testing::Values(Replacement{"%s", "x", "", ""}, Replacement{"%s", "x", "%s", "x"},
                    Replacement{"%s", "x", "%s%s", "xx"}, Replacement{"%s", "", "a%sb%s", "ab"},
                    Replacement{"%s", "x", "%", "%"}, Replacement{"%s", "x", "%%s", "%x"},
                    Replacement{"%s", "x", "100 %d %s", "100 %d x"},
                    Replacement{"%s", "%%s", "a %s", "a %%s"},
                    Replacement{"ab", "b", "aabb", "abb"}, Replacement{"aa", "a", "aaaa", "aa"},
                    Replacement{"longer than it", "x", "longer", "longer"},
                    Replacement{"${USER}", "alice", "^${USER}:|,${USER}$", "^alice:|,alice$"},
                    Replacement{"${USER}", "a", "${user} $USER", "${user} $USER"},
                    Replacement{"%s", "x", std::string("\0%s\0", 4), std::string("\0x\0", 3)},
                    Replacement{"%s", std::string("\0", 1), "a%s", std::string("a\0", 2)}));

TEST(StringUtilReplaceAll, MayReplaceATextByPartsOfItself) {
    std::string subject = "abab";
    StringUtil::replaceAll("ab", subject, subject);
    EXPECT_EQ(subject, "abababab");
}

TEST(StringUtilReplaceAll, TakesManyOccurrences) {
    std::string subject(100'000, 'a');
    StringUtil::replaceAll("a", "bc", subject);
    EXPECT_EQ(subject.size(), 200'000U);
    EXPECT_EQ(subject.find('a'), std::string::npos);
}

TEST(StringUtilSprintf, FillsInTheSliceOfAUser) {
    EXPECT_EQ(StringUtil::sprintf("/sys/fs/cgroup/user.slice/user-%u.slice", 4'294'967'294U),
              "/sys/fs/cgroup/user.slice/user-4294967294.slice");
}

TEST(StringUtilSprintf, CutsNothingOffAtAnyLength) {
    for (std::size_t length = 0; length < 1'100; ++length) {
        const std::string text(length, 'x');
        EXPECT_EQ(StringUtil::sprintf("%s.", text.c_str()), text + ".");
    }
}

TEST(StringUtilSprintf, WritesAPercentSign) {
    EXPECT_EQ(StringUtil::sprintf("%d%%", 7), "7%");
}

TEST(StringUtilSprintf, ThrowsWhenTheFormatCannotBeExpanded) {
    const std::string before = std::setlocale(LC_CTYPE, nullptr);
    std::setlocale(LC_CTYPE, "C");  // which has no euro sign
    try {
        StringUtil::sprintf("%ls", L"\u20ac");
        ADD_FAILURE() << "expanded";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "cannot expand the format '%ls'");
    }
    std::setlocale(LC_CTYPE, before.c_str());
}

struct Escape {
    char character;
    const char* prefix;
    const char* text;
};

class HexEscape : public testing::TestWithParam<Escape> {};

TEST_P(HexEscape, IsThePrefixAndTwoLowerCaseDigits) {
    EXPECT_EQ(StringUtil::hexEscape(GetParam().character, GetParam().prefix), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Bytes, HexEscape,
                         testing::Values(Escape{'\0', "\\x", "\\x00"},
                                         Escape{'\x01', "\\x", "\\x01"},
                                         Escape{'\n', "\\x", "\\x0a"}, Escape{'A', "\\x", "\\x41"},
                                         Escape{'\x7f', "\\x", "\\x7f"},
                                         Escape{'\x80', "\\x", "\\x80"},
                                         Escape{'\xff', "\\x", "\\xff"}, Escape{'\xab', "", "ab"},
                                         Escape{'%', "%", "%25"}, Escape{' ', "%s", "%s20"}));

}  // namespace
