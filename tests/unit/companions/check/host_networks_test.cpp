#include "companions/check/host_networks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "../../util/failure_of.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Each as "FIRST-LAST INTERFACE", in hexadecimal digits.
std::vector<std::string> networksOf(const std::string& routes) {
    std::vector<std::string> texts;
    for (const HostNetwork& network : readRoutes(routes)) {
        std::array<char, 64> text{};
        std::snprintf(text.data(), text.size(), "%08x-%08x %s", network.range.first,
                      network.range.last, network.interface.c_str());
        texts.emplace_back(text.data());
    }
    return texts;
}

TEST(HostNetworks, AreThoseOfRoutesInEveryTable) {
    EXPECT_THAT(networksOf(R"([
        {"dst": "192.0.2.0/24", "dev": "eth0", "protocol": "kernel"},
        {"dst": "100.64.0.0/10", "dev": "vpn", "table": "52"},
        {"type": "local", "dst": "100.64.9.1", "dev": "busy", "table": "local"},
        {"dst": "10.0.0.0/8", "nexthops": [{"dev": "eth1"}, {"dev": "eth2"}]}])"),
                ElementsAre("c0000200-c00002ff eth0", "64400000-647fffff vpn",
                            "64400901-64400901 busy", "0a000000-0affffff eth1"));
}

TEST(HostNetworks, LeaveOutDefaultRoutesAndRoutesThatRefuse) {
    EXPECT_THAT(networksOf(R"([
        {"dst": "default", "gateway": "192.0.2.1", "dev": "eth0"},
        {"dst": "0.0.0.0/1", "dev": "vpn"},
        {"dst": "128.0.0.0/1", "dev": "vpn"},
        {"type": "blackhole", "dst": "100.64.0.0/10"},
        {"type": "unreachable", "dst": "100.64.0.0/10"},
        {"type": "prohibit", "dst": "100.64.0.0/10"},
        {"type": "throw", "dst": "100.64.0.0/10"}])"),
                IsEmpty());
    EXPECT_THAT(networksOf("[ ]"), IsEmpty());
}

TEST(HostNetworks, AreUnknownWithoutAList) {
    EXPECT_EQ(failureOf([] { readRoutes(""); }), "cannot understand the list of the host's routes");
    EXPECT_EQ(failureOf([] { readRoutes("{}"); }),
              "cannot understand the list of the host's routes");
}

TEST(AddressRange, IsThatOfANetwork) {
    EXPECT_EQ(rangeOf(IpNetwork("100.64.0.4/30")).first, 0x64400004U);
    EXPECT_EQ(rangeOf(IpNetwork("100.64.0.4/30")).last, 0x64400007U);
    EXPECT_EQ(rangeOf(IpNetwork("100.64.0.4/32")).last, 0x64400004U);
    EXPECT_EQ(rangeOf(IpNetwork("0.0.0.0/0")).last, 0xffffffffU);
}

TEST(AddressRange, OverlapsFromTheFirstToTheLastAddress) {
    const AddressRange range{4, 7};
    EXPECT_TRUE(range.overlaps({7, 7}));
    EXPECT_TRUE(range.overlaps({0, 9}));
    EXPECT_FALSE(range.overlaps({8, 11}));
    EXPECT_FALSE(range.overlaps({0, 3}));
}

}  // namespace
