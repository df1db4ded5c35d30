#include "util/ip_network.h"

#include <gtest/gtest.h>

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

TEST(IpNetwork, TellsItsPrefixLength) {
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

}  // namespace
