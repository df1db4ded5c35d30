#include "fs/layer_paths.h"

#include <gtest/gtest.h>

namespace {

TEST(LayerPaths, ParentLeavesTheLastComponentOut) {
    EXPECT_EQ(parentOf("/etc/ssh/key"), "/etc/ssh");
    EXPECT_EQ(parentOf("/etc"), "/");
    EXPECT_EQ(parentOf("/etc/ssh/"), "/etc");
    EXPECT_EQ(parentOf("/"), "/");
    EXPECT_EQ(parentOf("name"), "");
    EXPECT_EQ(parentOf(""), "");
}

TEST(LayerPaths, AnchoredLeavesPlainItemsAsTheyAre) {
    for (const std::string item : {"", "/", "/etc/ssh", "/etc//ssh/", "/a..b/..c"}) {
        EXPECT_EQ(anchored(item), item);
    }
}

TEST(LayerPaths, AnchoredLeadsNowhereOutside) {
    EXPECT_EQ(anchored("/../x"), "/x");
    EXPECT_EQ(anchored("/a/../../../x/y"), "/x/y");
    EXPECT_EQ(anchored("/a/.."), "");
    EXPECT_EQ(anchored("../x"), "/x");
    EXPECT_EQ(anchored("x"), "/x");
}

}  // namespace
