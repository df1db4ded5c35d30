#include "container/stop.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

template <typename Action>
std::string failureOf(Action action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(StopCommand, TakesAnEmptyNameForAnAccountThatIsNotConfigured) {
    testing::internal::CaptureStdout();
    const std::string failure = failureOf([] { stopCommand(""); });
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(failure, "KIV not configured for requested user");
}

TEST(StopContainer, RefusesANetworkWithoutAnAddressForTheHost) {
    ContainerHandle handle("nobody");
    EXPECT_EQ(failureOf([&handle] { stopContainer(handle, IpNetwork("100.64.0.4/32")); }),
              "network 100.64.0.4/32 has no address number 1");
}

}  // namespace
