// How a complete root is distinguished from the host's root and from a cover. The end-to-end tests
// check how it is built.
#include "container/root_filesystem.h"

#include <gtest/gtest.h>

#include <string>

#include "../fs/temporary_directory.h"

namespace {

bool shows(const std::string& lines) {
    const TemporaryDirectory directory;
    MountTable table;
    readMountTable(table, "/", directory.write("/mountinfo", lines));
    return showsBuiltRoot(table);
}

constexpr const char* kBuilt =
    "99 8 0:4 / / ro - overlay overlay ro,lowerdir=/mnt/kiv:/mnt/root,uuid=on\n";
constexpr const char* kHome = "100 99 0:5 /alice /home/alice rw shared:1 - ext4 /dev/sda1 rw\n";

TEST(BuiltRoot, IsTheOverlayOfTheLayerAndTheHostsRoot) {
    EXPECT_TRUE(shows(std::string(kBuilt) + kHome));
}

TEST(BuiltRoot, IsNotTheHostsRootEvenWhenThatIsAnOverlay) {
    EXPECT_FALSE(shows("1 1 8:1 / / rw shared:1 - ext4 /dev/sda1 rw\n"));
    EXPECT_FALSE(
        shows("1 1 0:9 / / rw - overlay overlay rw,lowerdir=/rom,upperdir=/up,workdir=/w\n"));
    EXPECT_FALSE(shows("1 1 0:9 / / ro - overlay overlay ro,lowerdir=/mnt/kiv:/mnt/root/other\n"));
}

TEST(BuiltRoot, IsNotRecognisedBelowACoverOrAnotherRoot) {
    EXPECT_FALSE(shows(std::string(kBuilt) + "101 99 0:6 / / ro - tmpfs none ro,mode=0\n"));
    EXPECT_FALSE(shows(std::string(kBuilt) + "1 1 8:1 / / rw - ext4 /dev/sda1 rw\n"));
    EXPECT_FALSE(shows(kHome));
}

}  // namespace
