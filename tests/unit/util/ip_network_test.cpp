#include "util/ip_network.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

namespace {

std::string address(const std::string& network, unsigned long index) {
    return IpNetwork(network).getAddress(index);
}

TEST(IpNetwork, CountsAddressesFromTheNetworkAddress) {
    EXPECT_EQ(address("100.64.0.4/30", 0), "100.64.0.4");
    EXPECT_EQ(address("100.64.0.4/30", 1), "100.64.0.5");
    EXPECT_EQ(address("100.64.0.4/30", 2), "100.64.0.6");
    EXPECT_EQ(address("100.64.0.4/30", 3), "100.64.0.7");
}

TEST(IpNetwork, MasksHostBitsAway) {
    EXPECT_EQ(address("100.64.7.77/24", 1), "100.64.7.1");
    EXPECT_EQ(address("255.255.255.255/0", 1), "0.0.0.1");
}

TEST(IpNetwork, CarriesIntoHigherNumbers) {
    EXPECT_EQ(address("10.0.0.0/8", 65'536), "10.1.0.0");
}

TEST(IpNetwork, HasItsPrefixLength) {
    EXPECT_EQ(IpNetwork("100.64.0.4/30").bitmask(), 30U);
    EXPECT_EQ(IpNetwork("0.0.0.0/0").bitmask(), 0U);
    EXPECT_EQ(IpNetwork("1.2.3.4/32").bitmask(), 32U);
}

TEST(IpNetwork, ReachesTheLastAddressAndNoFurther) {
    EXPECT_EQ(address("0.0.0.0/0", 4'294'967'295UL), "255.255.255.255");
    EXPECT_THROW(address("0.0.0.0/0", 4'294'967'296UL), std::runtime_error);
}

TEST(IpNetwork, NamesNetworkAndIndexOfAnAddressThatItDoesNotHave) {
    try {
        address("100.64.0.5/31", 2);
        FAIL() << "has it";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "network 100.64.0.4/31 has no address number 2");
    }
}

TEST(IpNetwork, OfOneAddressHasNoSecond) {
    EXPECT_EQ(address("1.2.3.4/32", 0), "1.2.3.4");
    EXPECT_THROW(address("1.2.3.4/32", 1), std::runtime_error);
}

class MalformedNetwork : public testing::TestWithParam<std::string> {};

TEST_P(MalformedNetwork, IsRefusedWithItsText) {
    try {
        const IpNetwork network(GetParam());
        FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "malformed network '" + GetParam() + "'");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, MalformedNetwork,
    testing::Values("", " ", "/", "/30", "100.64.0.4", "100.64.0.4/", "100.64.0/30",
                    "100.64.0.4.5/30", "100.64.0.4/33", "100.64.0.4/-1", "100.64.0.4/+30",
                    "100.64.0.4/030", "100.64.0.4/30 ", " 100.64.0.4/30", "100.64. 0.4/30",
                    "100.64.0.4 /30", "100.64.0.4/ 30", "100.64.0.4/30\n", "100.64.0.4/30x",
                    "100.64.0.4/30/30", "256.64.0.4/30", "100.64.0.256/30", "100.64.0.-4/30",
                    "+100.64.0.4/30", "0100.64.0.4/30", "100.064.0.4/30", "100.64.00.4/30",
                    "0x64.64.0.4/30", "100..0.4/30", ".64.0.4/30", "100.64.0./30",
                    "4294967296.64.0.4/30", "18446744073709551616.64.0.4/30",
                    "100.64.0.4/4294967326", "100,64,0,4/30", "100.64.0.4\\30", "a.b.c.d/e",
                    "::1/128", "fe80::/10", "100.64.0.4/3\xd9\xa0"));

TEST(IpNetwork, RefusesANulByte) {
    EXPECT_THROW(IpNetwork(std::string("100.64.0.4/30\0", 14)), std::runtime_error);
}

std::string firstAddress(const std::string& text) {
    return IpNetwork(text).getAddress(0);
}

class MisspeltNetwork : public testing::TestWithParam<std::string> {};

TEST_P(MisspeltNetwork, IsRefusedWithItsText) {
    try {
        const IpNetwork network(GetParam());
        FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "malformed network '" + GetParam() + "'");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Prefix, MisspeltNetwork,
    testing::Values("1.2.3.4/033", "1.2.3.4/00", "1.2.3.4/01", "1.2.3.4/0x1", "1.2.3.4/0x1e",
                    "1.2.3.4/1e1", "1.2.3.4/256", "1.2.3.4/4294967295", "1.2.3.4/4294967296",
                    "1.2.3.4/18446744073709551617", "1.2.3.4/99999999999999999999999999",
                    "1.2.3.4/-0", "1.2.3.4//30", "1.2.3.4/3 0", "1.2.3.4/30.", "1.2.3.4/30/",
                    "1.2.3.4/30\r", "1.2.3.4/30\t", "1.2.3.4/\n30", "1.2.3.4/255.255.255.252",
                    "1.2.3.4/30 # office", "1.2.3.4/30,1.2.3.8/30"));

INSTANTIATE_TEST_SUITE_P(
    Numbers, MisspeltNetwork,
    testing::Values("1.2.3/30", "1.2/30", "1/30", "0/0", "00.0.0.0/0", "0.0.0.00/0", "01.2.3.4/30",
                    "1.2.3.4./30", "1...4/30", "...", ".../30", "-0.2.3.4/30", "1.2.3.-0/30",
                    "1.2.3.+4/30", "1.2.3.4e0/30", "1.2.3.0x4/30", "1.2.3.1000/30",
                    "1.2.3.4294967300/30", "1.2.3.99999999999999999999999/30", "1.2.3.4.5/30",
                    "1.2.3.4:5/30", "1 2 3 4/30", "\t1.2.3.4/30", "\n1.2.3.4/30", "1.2.3.4 30",
                    "1.2.3.0b1/30", "1.2.3.'4'/30", "localhost/30", "::ffff:1.2.3.4/30", "%s"));

// digits of other scripts: Arabic-Indic, full-width, superscript
INSTANTIATE_TEST_SUITE_P(Unicode, MisspeltNetwork,
                         testing::Values("\xd9\xa1.2.3.4/30", "\xef\xbc\x91.2.3.4/30",
                                         "1.2.3.4/\xc2\xb3", "1.2.3.\xd9\xa4/30",
                                         "1\xe3\x80\x82"
                                         "2.3.4/30",
                                         "\xef\xbb\xbf"
                                         "1.2.3.4/30"));

class NetworkWithANulByte : public testing::TestWithParam<std::string> {};

// what() shows the text up to that byte
TEST_P(NetworkWithANulByte, IsRefused) {
    EXPECT_THROW(IpNetwork{GetParam()}, std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(
    Places, NetworkWithANulByte,
    testing::Values(std::string("\0", 1), std::string("\0001.2.3.4/30", 11),
                    std::string("1\0.2.3.4/30", 11), std::string("1.2.3.4\0/30", 11),
                    std::string("1.2.3.4/\00030", 11), std::string("1.2.3.4/3\0000", 11),
                    std::string("1.2.3.4/30\0", 11), std::string("1.2.3.4/30\0junk", 15)));

TEST(IpNetwork, RefusesAHugeText) {
    EXPECT_THROW(IpNetwork(std::string(100'000, '1') + ".2.3.4/30"), std::runtime_error);
}

struct PrefixAndNetwork {
    const char* text;
    const char* first;
    const char* last;
};

class NetworkOfPrefix : public testing::TestWithParam<PrefixAndNetwork> {};

TEST_P(NetworkOfPrefix, ReachesFromItsFirstToItsLastAddress) {
    const IpNetwork network(GetParam().text);
    const auto size = 1UL << (32 - network.bitmask());
    EXPECT_EQ(std::string(network.getAddress(0)), GetParam().first);
    EXPECT_EQ(std::string(network.getAddress(size - 1)), GetParam().last);
    EXPECT_THROW(network.getAddress(size), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(
    Prefixes, NetworkOfPrefix,
    testing::Values(PrefixAndNetwork{"1.2.3.4/0", "0.0.0.0", "255.255.255.255"},
                    PrefixAndNetwork{"255.255.255.255/1", "128.0.0.0", "255.255.255.255"},
                    PrefixAndNetwork{"127.255.255.255/1", "0.0.0.0", "127.255.255.255"},
                    PrefixAndNetwork{"100.127.255.255/10", "100.64.0.0", "100.127.255.255"},
                    PrefixAndNetwork{"10.20.30.40/16", "10.20.0.0", "10.20.255.255"},
                    PrefixAndNetwork{"10.20.30.40/23", "10.20.30.0", "10.20.31.255"},
                    PrefixAndNetwork{"10.20.31.40/24", "10.20.31.0", "10.20.31.255"},
                    PrefixAndNetwork{"100.64.0.7/29", "100.64.0.0", "100.64.0.7"},
                    PrefixAndNetwork{"100.64.0.4/30", "100.64.0.4", "100.64.0.7"},
                    PrefixAndNetwork{"255.255.255.255/30", "255.255.255.252", "255.255.255.255"},
                    PrefixAndNetwork{"1.2.3.5/31", "1.2.3.4", "1.2.3.5"},
                    PrefixAndNetwork{"0.0.0.0/32", "0.0.0.0", "0.0.0.0"},
                    PrefixAndNetwork{"255.255.255.255/32", "255.255.255.255", "255.255.255.255"}));

TEST(IpNetwork, HasEveryPrefixLength) {
    for (unsigned length = 0; length <= 32; ++length) {
        EXPECT_EQ(IpNetwork("255.255.255.255/" + std::to_string(length)).bitmask(), length);
    }
}

TEST(IpNetwork, MasksAllButTheHighestBitsOfThePrefix) {
    EXPECT_EQ(firstAddress("255.255.255.255/9"), "255.128.0.0");
    EXPECT_EQ(firstAddress("255.255.255.255/17"), "255.255.128.0");
    EXPECT_EQ(firstAddress("255.255.255.255/27"), "255.255.255.224");
}

TEST(IpNetwork, DoesNotWrapAroundAtTheLargestIndex) {
    try {
        IpNetwork("0.0.0.0/0").getAddress(std::numeric_limits<unsigned long>::max());
        FAIL() << "has it";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "network 0.0.0.0/0 has no address number 18446744073709551615");
    }
}

TEST(IpNetwork, DoesNotCutTheIndexTo32Bits) {
    EXPECT_THROW(IpNetwork("100.64.0.4/30").getAddress(0x1'0000'0001UL), std::runtime_error);
}

TEST(IpAddress, WritesTheHighestByteFirst) {
    EXPECT_EQ(std::string(IpAddress(0x64400005)), "100.64.0.5");
    EXPECT_EQ(std::string(IpAddress(0)), "0.0.0.0");
    EXPECT_EQ(std::string(IpAddress(0xffffffff)), "255.255.255.255");
}

}  // namespace
