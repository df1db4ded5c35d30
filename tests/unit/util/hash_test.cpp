#include "util/hash.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "util/string_util.h"

namespace {

std::string hexOf(const std::string& data) {
    std::string text;
    for (const unsigned char byte : Hash::hash(data, Hash::Sha256)) {
        text += StringUtil::hexEscape(static_cast<char>(byte), "");
    }
    return text;
}

struct LengthAndDigest {
    std::size_t length;
    const char* digest;
};

class DigestOfLetters : public testing::TestWithParam<LengthAndDigest> {};

TEST_P(DigestOfLetters, IsThatOfOpenssl) {
    EXPECT_EQ(hexOf(std::string(GetParam().length, 'a')), GetParam().digest);
}

// Padding changes at 56 and at 64 bytes of a block.
INSTANTIATE_TEST_SUITE_P(
    AroundTheEndOfABlock, DigestOfLetters,
    testing::Values(
        LengthAndDigest{55, "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
        LengthAndDigest{56, "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
        LengthAndDigest{57, "f13b2d724659eb3bf47f2dd6af1accc87b81f09f59f2b75e5c0bed6589dfe8c6"},
        LengthAndDigest{58, "d5c039b748aa64665782974ec3dc3025c042edf54dcdc2b5de31385b094cb678"},
        LengthAndDigest{59, "111bb261277afd65f0744b247cd3e47d386d71563d0ed995517807d5ebd4fba3"},
        LengthAndDigest{60, "11ee391211c6256460b6ed375957fadd8061cafbb31daf967db875aebd5aaad4"},
        LengthAndDigest{61, "35d5fc17cfbbadd00f5e710ada39f194c5ad7c766ad67072245f1fad45f0f530"},
        LengthAndDigest{62, "f506898cc7c2e092f9eb9fadae7ba50383f5b46a2a4fe5597dbb553a78981268"},
        LengthAndDigest{63, "7d3e74a05d7db15bce4ad9ec0658ea98e3f06eeecf16b4c6fff2da457ddc2f34"},
        LengthAndDigest{64, "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
        LengthAndDigest{65, "635361c48bb9eab14198e76ea8ab7f1a41685d6ad62aa9146d301d4f17eb0ae0"},
        LengthAndDigest{119, "31eba51c313a5c08226adf18d4a359cfdfd8d2e816b13f4af952f7ea6584dcfb"},
        LengthAndDigest{120, "2f3d335432c70b580af0e8e1b3674a7c020d683aa5f73aaaedfdc55af904c21c"},
        LengthAndDigest{128, "6836cf13bac400e9105071cd6af47084dfacad4e5e302c94bfed24e013afb73e"}));

TEST(Hash, OfTwoBlocksIsTheStandardsExample) {
    EXPECT_EQ(hexOf("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                    "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"),
              "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1");
}

TEST(Hash, CountsNulBytesAsData) {
    EXPECT_EQ(hexOf(std::string(1, '\0')),
              "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d");
    EXPECT_EQ(hexOf(std::string("a\0b", 3)),
              "59b271ae1bbcb1d31d41929817f4b16fb439eb4f31520b5ad1d5ce98920a7138");
}

TEST(Hash, TakesEveryByteValue) {
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes += static_cast<char>(value);
    }
    EXPECT_EQ(hexOf(bytes), "40aff2e9d2d8922e47afd4648e6967497158785fbd1da870e7110266bf944880");
}

TEST(Hash, NamesTheAlgorithmThatItDoesNotKnow) {
    try {
        Hash::hash("abc", static_cast<Hash::Algorithm>(0));
        FAIL() << "known";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "unknown hash algorithm 0");
    }
}

// The first three are the examples of FIPS 180-4, the others come from sha256sum(1).
TEST(Hash, AlgorithmOneIsSha256) {
    static_assert(Hash::Sha256 == 1);
    EXPECT_EQ(hexOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(hexOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hexOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Hash, PadsTextsAroundABlocksLength) {
    EXPECT_EQ(hexOf(std::string(55, 'a')),
              "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318");
    EXPECT_EQ(hexOf(std::string(56, 'a')),
              "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a");
    EXPECT_EQ(hexOf(std::string(64, 'a')),
              "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb");
}

TEST(Hash, TakesLongTexts) {
    EXPECT_EQ(hexOf(std::string(1'000'000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Hash, RefusesAnotherAlgorithm) {
    EXPECT_THROW(Hash::hash("abc", static_cast<Hash::Algorithm>(2)), std::runtime_error);
}

}  // namespace
