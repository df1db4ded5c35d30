#include "container/replaced_files.h"

#include <gtest/gtest.h>

namespace {

TEST(MapFileName, OmitsTheZerosThatPadLowAddresses) {
    EXPECT_EQ(mapFileName("00401000-00402000"), "401000-402000");
    EXPECT_EQ(mapFileName("0fff0000-10000000"), "fff0000-10000000");
}

TEST(MapFileName, IsTheRangeWhereAddressesAreHigh) {
    EXPECT_EQ(mapFileName("7f840dce6000-7f840de3c000"), "7f840dce6000-7f840de3c000");
}

}  // namespace
