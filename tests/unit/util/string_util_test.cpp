#include "util/string_util.h"

#include <gtest/gtest.h>

#include <clocale>
#include <list>
#include <stdexcept>
#include <vector>

namespace {

using List = std::list<std::string>;
using Vector = std::vector<std::string>;

constexpr bool kDropEmpty = true;
constexpr bool kKeepEmpty = false;

TEST(StringUtilSplit, DropsEmptyPiecesWhenAsked) {
    EXPECT_EQ(StringUtil::split<List>("  a b   c ", " ", kDropEmpty, false), (List{"a", "b", "c"}));
}

TEST(StringUtilSplit, SeparatesAtEveryCharacterOfTheSeparators) {
    EXPECT_EQ(StringUtil::split<Vector>("a\t \tb c", " \t", kDropEmpty, false),
              (Vector{"a", "b", "c"}));
}

TEST(StringUtilSplit, OfAnEmptyTextIsAnEmptyList) {
    EXPECT_EQ(StringUtil::split<List>("", " ", kDropEmpty, false), List{});
}

TEST(StringUtilSplit, OfOnlySeparatorsIsAnEmptyList) {
    EXPECT_EQ(StringUtil::split<List>("   ", " ", kDropEmpty, false), List{});
}

TEST(StringUtilSplit, KeepsEmptyPiecesWhenAsked) {
    EXPECT_EQ(StringUtil::split<List>("/a//b", "/", kKeepEmpty, false), (List{"", "a", "", "b"}));
}

TEST(StringUtilSplit, KeepsSeparatorsAsSeparatePieces) {
    EXPECT_EQ(StringUtil::split<List>("a=b,c", "=,", kDropEmpty, true),
              (List{"a", "=", "b", ",", "c"}));
}

TEST(StringUtilSplit, KeepsNulBytesInPieces) {
    const std::string text("a\0b c", 5);
    EXPECT_EQ(StringUtil::split<List>(text, " ", kDropEmpty, false),
              (List{std::string("a\0b", 3), "c"}));
}

TEST(StringUtilTrim, RemovesTheCharactersFromBothEndsInPlace) {
    std::string text = " \t\r\n\f\va b\t\v\f\n\r ";
    std::string& result = StringUtil::trim(text, " \t\n\f\r\v");
    EXPECT_EQ(text, "a b");
    EXPECT_EQ(&result, &text);
}

TEST(StringUtilTrim, OfOnlyTheCharactersIsEmpty) {
    std::string text = "    ";
    EXPECT_EQ(StringUtil::trim(text, " "), "");
}

TEST(StringUtilTrim, LeavesATextWithoutThemAlone) {
    std::string text = "abc";
    EXPECT_EQ(StringUtil::trim(text, " "), "abc");
}

std::string replaced(const std::string& from, const std::string& to, std::string subject) {
    StringUtil::replaceAll(from, to, subject);
    return subject;
}

TEST(StringUtilReplaceAll, ReplacesEveryOccurrence) {
    EXPECT_EQ(replaced("${USER}", "alice", "^(${USER}|x${USER}):"), "^(alice|xalice):");
}

TEST(StringUtilReplaceAll, DoesNotSearchTheReplacementAgain) {
    EXPECT_EQ(replaced("%s", "%s%s", "a %s b"), "a %s%s b");
}

TEST(StringUtilReplaceAll, TakesOccurrencesFromTheLeftWithoutOverlap) {
    EXPECT_EQ(replaced("aa", "b", "aaaaa"), "bba");
}

TEST(StringUtilReplaceAll, LeavesTheSubjectAloneWithoutAnOccurrence) {
    EXPECT_EQ(replaced("x", "y", "abc"), "abc");
}

TEST(StringUtilReplaceAll, FindsAnEmptyTextNowhere) {
    EXPECT_EQ(replaced("", "y", "abc"), "abc");
}

TEST(StringUtilSprintf, ExpandsLikePrintf) {
    EXPECT_EQ(StringUtil::sprintf("net.ipv4.ping_group_range=%u %u", 4294967295U, 7U),
              "net.ipv4.ping_group_range=4294967295 7");
}

TEST(StringUtilSprintf, HoldsTextsOfAnyLength) {
    const std::string longText(100'000, 'x');
    EXPECT_EQ(StringUtil::sprintf("<%s>", longText.c_str()), "<" + longText + ">");
}

TEST(StringUtilHexEscape, WritesTwoLowerCaseDigits) {
    EXPECT_EQ(StringUtil::hexEscape('\x01', "\\x"), "\\x01");
    EXPECT_EQ(StringUtil::hexEscape('\xfe', "\\x"), "\\xfe");
}

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

TEST_P(TrimmedText, IsAPartOfTheText) {
    const std::string& text = GetParam().text;
    const std::string_view part = StringUtil::trimmed(text, GetParam().characters);
    EXPECT_EQ(part, GetParam().result);
    EXPECT_TRUE(part.data() >= text.data() && part.end() <= text.data() + text.size());
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
                    // a byte of a multi-byte character is not a blank
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
    std::setlocale(LC_CTYPE, "C");  // without a euro sign
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

TEST(EscapeControls, WritesC0AndDelAsTheirTwoDigits) {
    using namespace std::string_view_literals;
    EXPECT_EQ(StringUtil::escapeControls("\0\x01\t\n\r\x1b[31m\x1f\x7f"sv),
              "\\x00\\x01\\x09\\x0a\\x0d\\x1b[31m\\x1f\\x7f");
}

TEST(EscapeControls, WritesBothBytesOfAC1ControlInUtf8) {
    EXPECT_EQ(StringUtil::escapeControls("a\xc2\x80\xc2\x85\xc2\x9f"),
              "a\\xc2\\x80\\xc2\\x85\\xc2\\x9f");
}

TEST(EscapeControls, LeavesTextInUtf8AndOtherCharacterSets) {
    // U+00A0, U+00FC, U+0705, U+20AC, U+1F600; Latin-1; continuation bytes on their own; a cut pair
    for (const char* text :
         {"", "/srv/a b~\\x0a", "\xc2\xa0\xc3\xbc\xdc\x85\xe2\x82\xac\xf0\x9f\x98\x80",
          "gr\xfc\xdf", "\x80\x85\x9f", "\xc3\x85\xe2\x82\x85", "cut \xc2"}) {
        EXPECT_EQ(StringUtil::escapeControls(text), text);
    }
}

TEST(EscapeControls, ChangesNothingTheSecondTime) {
    const std::string once = StringUtil::escapeControls("a\n\xc2\x85\x1b");
    EXPECT_EQ(StringUtil::escapeControls(once), once);
}

}  // namespace
