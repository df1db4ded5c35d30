// The views other than the pinned one that a refresh visits. The end-to-end tests check the refresh
// itself, which needs root and containers.
#include "companions/refresh/refresh_containers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint64_t kNetwork = 10;
constexpr std::uint64_t kOtherNetwork = 11;
constexpr std::uint64_t kPinned = 20;
constexpr std::uint64_t kOwn = 21;

TEST(OtherViews, AreThoseOfProcessesInTheNetwork) {
    EXPECT_THAT(processesWithOtherViews({{1, kOtherNetwork, 30}, {2, kNetwork, 31}}, kNetwork,
                                        {kPinned, kOwn}),
                ElementsAre(2));
}

TEST(OtherViews, LeaveOutThePinnedOneAndTheCallersOwn) {
    EXPECT_THAT(processesWithOtherViews({{1, kNetwork, kPinned}, {2, kNetwork, kOwn}}, kNetwork,
                                        {kPinned, kOwn}),
                IsEmpty());
}

TEST(OtherViews, AreListedOnceForAnyNumberOfProcesses) {
    EXPECT_THAT(processesWithOtherViews({{1, kNetwork, 30}, {2, kNetwork, 31}, {3, kNetwork, 30}},
                                        kNetwork, {kPinned, kOwn}),
                ElementsAre(1, 2));
}

TEST(OtherViews, AreNoneWithoutProcesses) {
    EXPECT_THAT(processesWithOtherViews({}, kNetwork, {kPinned}), IsEmpty());
}

}  // namespace
