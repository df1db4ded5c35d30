#include "companions/check/host_networks.h"

#include <gtest/gtest.h>

#include "../../fs/temporary_directory.h"

namespace {

TEST(HostNetworks, AreTheRoutesButTheDefaultOnes) {
    const TemporaryDirectory directory;
    const std::string table = directory.write(
        "/route",
        "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
        "eth0\t00000000\t010200C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n"
        "eth0\t000200C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n");
    const auto networks = readRoutes(table);
    ASSERT_EQ(networks.size(), 1U);
    EXPECT_EQ(networks.front().interface, "eth0");
    EXPECT_EQ(networks.front().range.first, 0xc0000200U);
    EXPECT_EQ(networks.front().range.last, 0xc00002ffU);
}

TEST(AddressRange, OverlapsFromTheFirstToTheLastAddress) {
    const AddressRange range{4, 7};
    EXPECT_TRUE(range.overlaps({7, 7}));
    EXPECT_TRUE(range.overlaps({0, 9}));
    EXPECT_FALSE(range.overlaps({8, 11}));
    EXPECT_FALSE(range.overlaps({0, 3}));
}

}  // namespace
