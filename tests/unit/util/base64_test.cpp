#include "util/base64.h"

#include <gtest/gtest.h>

#include "util/hash.h"

namespace {

constexpr bool kStandard = false;
constexpr bool kUrlSafe = true;

std::string encode(const std::string& data, bool urlSafe, unsigned char lineLength = 0) {
    return Base64::encode({data.begin(), data.end()}, urlSafe, lineLength);
}

struct Vector {
    const char* data;
    const char* standard;
    const char* urlSafe;
};

// RFC 4648, section 10
class Base64Vector : public testing::TestWithParam<Vector> {};

TEST_P(Base64Vector, IsPaddedInTheStandardAlphabet) {
    EXPECT_EQ(encode(GetParam().data, kStandard), GetParam().standard);
}

TEST_P(Base64Vector, IsNotPaddedInTheUrlSafeAlphabet) {
    EXPECT_EQ(encode(GetParam().data, kUrlSafe), GetParam().urlSafe);
}

INSTANTIATE_TEST_SUITE_P(OfTheStandard, Base64Vector,
                         testing::Values(Vector{"", "", ""}, Vector{"f", "Zg==", "Zg"},
                                         Vector{"fo", "Zm8=", "Zm8"}, Vector{"foo", "Zm9v", "Zm9v"},
                                         Vector{"foob", "Zm9vYg==", "Zm9vYg"},
                                         Vector{"fooba", "Zm9vYmE=", "Zm9vYmE"},
                                         Vector{"foobar", "Zm9vYmFy", "Zm9vYmFy"}));

/// The bytes whose encoding is the whole alphabet in order.
std::vector<unsigned char> wholeAlphabet() {
    return {0x00, 0x10, 0x83, 0x10, 0x51, 0x87, 0x20, 0x92, 0x8b, 0x30, 0xd3, 0x8f,
            0x41, 0x14, 0x93, 0x51, 0x55, 0x97, 0x61, 0x96, 0x9b, 0x71, 0xd7, 0x9f,
            0x82, 0x18, 0xa3, 0x92, 0x59, 0xa7, 0xa2, 0x9a, 0xab, 0xb2, 0xdb, 0xaf,
            0xc3, 0x1c, 0xb3, 0xd3, 0x5d, 0xb7, 0xe3, 0x9e, 0xbb, 0xf3, 0xdf, 0xbf};
}

TEST(Base64, StandardAlphabetEndsInPlusAndSlash) {
    EXPECT_EQ(Base64::encode(wholeAlphabet(), kStandard, 0),
              "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST(Base64, UrlSafeAlphabetEndsInMinusAndUnderscore) {
    EXPECT_EQ(Base64::encode(wholeAlphabet(), kUrlSafe, 0),
              "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_");
}

TEST(Base64, EncodesNulBytes) {
    EXPECT_EQ(Base64::encode({0, 0, 0, 0}, kStandard, 0), "AAAAAA==");
    EXPECT_EQ(Base64::encode({0, 0, 0, 0}, kUrlSafe, 0), "AAAAAA");
}

TEST(Base64, FillsTheLastCharacterWithZeroBits) {
    EXPECT_EQ(Base64::encode({0xff}, kUrlSafe, 0), "_w");
    EXPECT_EQ(Base64::encode({0xff, 0xff}, kUrlSafe, 0), "__8");
}

TEST(Base64, DoesNotBreakLongTextsByDefault) {
    const std::string text = encode(std::string(3'000, '\0'), kUrlSafe);
    EXPECT_EQ(text, std::string(4'000, 'A'));
}

TEST(Base64, BreaksUrlSafeTextsToo) {
    EXPECT_EQ(encode("foob", kUrlSafe, 4), "Zm9v\nYg");
}

TEST(Base64, CountsThePaddingIntoTheLine) {
    EXPECT_EQ(encode("foob", kStandard, 7), "Zm9vYg=\n=");
}

TEST(Base64, BreaksAfterEveryCharacterAtLengthOne) {
    EXPECT_EQ(encode("foo", kStandard, 1), "Z\nm\n9\nv");
}

TEST(Base64, PutsNoBreakIntoAnEmptyText) {
    EXPECT_EQ(encode("", kStandard, 1), "");
}

struct NameAndText {
    const char* name;
    const char* text;
};

class DigestTextOfAName : public testing::TestWithParam<NameAndText> {};

// They must never change: interfaces and rules on existing hosts carry the first nine characters.
TEST_P(DigestTextOfAName, IsPinned) {
    const std::string text = Base64::encode(Hash::hash(GetParam().name, Hash::Sha256), true, 0);
    EXPECT_EQ(text.substr(0, 9), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(LongNames, DigestTextOfAName,
                         testing::Values(NameAndText{"firstname.lastname", "2rsnVMVK8"},
                                         NameAndText{"m\xc3\xbcller-webshop", "NMHuvJ0_4"},
                                         NameAndText{"averylongusername", "-E46i7E2V"}));

TEST(Base64, OfDigestsHasOnlyCharactersOfInterfaceNames) {
    const std::string allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    for (int number = 0; number < 1'000; ++number) {
        const std::string name = "long-account-" + std::to_string(number);
        const std::string text = Base64::encode(Hash::hash(name, Hash::Sha256), true, 0);
        EXPECT_EQ(text.size(), 43U) << name;
        EXPECT_EQ(text.find_first_not_of(allowed), std::string::npos) << name;
    }
}

std::string encoded(const std::string& data, bool urlSafe, unsigned char lineLength = 0) {
    return Base64::encode({data.begin(), data.end()}, urlSafe, lineLength);
}

// RFC 4648, section 10
TEST(Base64, PadsTheStandardAlphabet) {
    EXPECT_EQ(encoded("", false), "");
    EXPECT_EQ(encoded("f", false), "Zg==");
    EXPECT_EQ(encoded("fo", false), "Zm8=");
    EXPECT_EQ(encoded("foo", false), "Zm9v");
    EXPECT_EQ(encoded("foobar", false), "Zm9vYmFy");
}

TEST(Base64, LeavesThePaddingOutOfTheUrlSafeAlphabet) {
    EXPECT_EQ(encoded("f", true), "Zg");
    EXPECT_EQ(encoded("fo", true), "Zm8");
}

TEST(Base64, UsesNoSlashInTheUrlSafeAlphabet) {
    EXPECT_EQ(encoded("\xff\xef\xbe", false), "/+++");
    EXPECT_EQ(encoded("\xff\xef\xbe", true), "_---");
}

TEST(Base64, BreaksLinesWhereAsked) {
    EXPECT_EQ(encoded("foobarfoo", false, 5), "Zm9vY\nmFyZm\n9v");
    EXPECT_EQ(encoded("foobar", false, 4), "Zm9v\nYmFy");
    EXPECT_EQ(encoded("foobar", false, 255), "Zm9vYmFy");
}

}  // namespace
