#include "container/stop.h"

#include <gtest/gtest.h>

#include <iostream>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"
#include "../util/failure_of.h"

namespace {

TEST(StopCommand, TreatsAnEmptyNameAsNotConfigured) {
    const auto result = inChild([] {
        leaveDescriptors(0);  // protects the machine's accounts if it should mean all
        std::cout << failureOf([] { stopCommand(""); }) << std::flush;
        return 0;
    });
    EXPECT_EQ(result.output, "KIV not configured for requested user");
}

TEST(StopContainer, RefusesANetworkWithoutAnAddressForTheHost) {
    ContainerHandle handle("nobody");
    EXPECT_EQ(failureOf([&handle] { stopContainer(handle, IpNetwork("100.64.0.4/32")); }),
              "network 100.64.0.4/32 has no address number 1");
}

}  // namespace
