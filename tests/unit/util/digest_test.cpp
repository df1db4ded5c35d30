#include <gtest/gtest.h>

#include <stdexcept>

#include "util/base64.h"
#include "util/hash.h"
#include "util/string_util.h"

namespace {

std::string hexDigest(const std::string& data) {
    std::string text;
    for (const unsigned char byte : Hash::hash(data, Hash::Sha256)) {
        text += StringUtil::hexEscape(static_cast<char>(byte), "");
    }
    return text;
}

std::string encoded(const std::string& data, bool urlSafe, unsigned char lineLength = 0) {
    return Base64::encode({data.begin(), data.end()}, urlSafe, lineLength);
}

// The first three are the examples of FIPS 180-4, the others are what sha256sum says.
TEST(Hash, AlgorithmOneIsSha256) {
    static_assert(Hash::Sha256 == 1);
    EXPECT_EQ(hexDigest(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(hexDigest("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hexDigest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Hash, PadsTextsAroundABlocksLength) {
    EXPECT_EQ(hexDigest(std::string(55, 'a')),
              "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318");
    EXPECT_EQ(hexDigest(std::string(56, 'a')),
              "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a");
    EXPECT_EQ(hexDigest(std::string(64, 'a')),
              "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb");
}

TEST(Hash, TakesLongTexts) {
    EXPECT_EQ(hexDigest(std::string(1'000'000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Hash, RefusesAnotherAlgorithm) {
    EXPECT_THROW(Hash::hash("abc", static_cast<Hash::Algorithm>(2)), std::runtime_error);
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
