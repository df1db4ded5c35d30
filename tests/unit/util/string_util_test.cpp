#include "util/string_util.h"

#include <gtest/gtest.h>

#include <list>
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

TEST(StringUtilSplit, OfSeparatorsAloneIsAnEmptyList) {
    EXPECT_EQ(StringUtil::split<List>("   ", " ", kDropEmpty, false), List{});
}

TEST(StringUtilSplit, KeepsEmptyPiecesWhenAsked) {
    EXPECT_EQ(StringUtil::split<List>("/a//b", "/", kKeepEmpty, false), (List{"", "a", "", "b"}));
}

TEST(StringUtilSplit, KeepsSeparatorsAsPiecesOfTheirOwn) {
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

TEST(StringUtilTrim, OfNothingButTheCharactersIsEmpty) {
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
