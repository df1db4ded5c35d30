// The places that the layer prepares for bind mounts.
#include <gtest/gtest.h>

#include <filesystem>

#include "layer_fixture.h"

namespace {

using BindLayer = OverlayLayer;

TEST_F(BindLayer, MirrorsTheParentsFromTheRunningSystem) {
    lower.write("/host/dir/file", "");
    lower.makeDirectory("/host/dir", 0710);
    bind = {host + "/dir/file"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer" + host + "/dir"), static_cast<mode_t>(S_IFDIR | 0710));
}

TEST_F(BindLayer, AppliesTheUmaskToFiles) {
    lower.write("/host/file", "");
    ::umask(027);
    bind = {host + "/file"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/file"), static_cast<mode_t>(S_IFREG | 0640));
    ::umask(077);
    bind = {lower.write("/host/other", "")};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/other"), static_cast<mode_t>(S_IFREG | 0600));
}

TEST_F(BindLayer, DoesNotCopyTheModeOfAFile) {
    lower.write("/host/file", "");
    std::filesystem::permissions(host + "/file", std::filesystem::perms::all);
    bind = {host + "/file"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/file"), static_cast<mode_t>(S_IFREG | 0640));
}

TEST_F(BindLayer, LeavesTheContentOfADirectoryOut) {
    lower.write("/host/dir/file", "");
    bind = {host + "/dir"};
    build();
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer" + host + "/dir")));
}

TEST_F(BindLayer, PreparesAFileForWhatIsNeitherFileNorDirectory) {
    bind = {"/dev/null"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer/dev/null"), static_cast<mode_t>(S_IFREG | 0640));
}

TEST_F(BindLayer, LooksAtWhatALinkLeadsTo) {
    lower.makeDirectory("/host/dir", 0711);
    std::filesystem::create_symlink("dir", host + "/link");
    bind = {host + "/link"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/link"), static_cast<mode_t>(S_IFDIR | 0711));
}

TEST_F(BindLayer, TakesADirectoryWrittenWithASlashAtItsEnd) {
    lower.makeDirectory("/host/dir");
    bind = {host + "/dir/"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(S_ISDIR(lower.mode("/layer" + host + "/dir")));
}

TEST_F(BindLayer, ReportsAFileWrittenWithASlashAtItsEnd) {
    lower.write("/host/file", "");
    bind = {host + "/file/"};
    build();
    EXPECT_EQ(errors, host + "/file/: cannot prepare bind-mount: Not a directory\n");
    EXPECT_FALSE(lower.has("/layer" + host));
}

TEST_F(BindLayer, DoesNotExpandPatterns) {
    lower.write("/host/file", "");
    bind = {host + "/f*"};
    settings().debugMode = 1;
    build();
    EXPECT_EQ(errors, host + "/f*: cannot prepare bind-mount: No such file or directory\n");
}

TEST_F(BindLayer, ReportsADirectoryWithoutAPlace) {
    lower.makeDirectory("/host/dir/deep");
    lower.write("/layer" + host, "in the way");
    bind = {host + "/dir/deep"};
    build();
    EXPECT_EQ(errors, lower.at("/layer" + host + "/dir") + ": Not a directory\n" + "mkdir(" +
                          lower.at("/layer" + host + "/dir/deep") +
                          ") failed (2): Not a directory\n");
}

TEST_F(BindLayer, ReportsAFileWhoseParentsCannotBeMade) {
    lower.write("/host/dir/file", "");
    lower.write("/layer" + host, "in the way");
    bind = {host + "/dir/file"};
    build();
    EXPECT_EQ(errors, lower.at("/layer" + host + "/dir") + ": Not a directory\n" + "mkdir(" +
                          lower.at("/layer" + host + "/dir/file") +
                          ") failed (2): Not a directory\n");
}

TEST_F(BindLayer, GoesOnAfterEachPathThatFails) {
    lower.write("/host/file", "");
    lower.write("/host/good", "");
    bind = {host + "/absent", host + "/file/x", host + "/good"};
    build();
    EXPECT_EQ(errors, host + "/file/x: cannot prepare bind-mount: Not a directory\n");
    EXPECT_TRUE(lower.has("/layer" + host + "/good"));
}

TEST_F(BindLayer, LeavesAPlaceThatExistsAsItIs) {
    lower.write("/host/file", "");
    lower.write("/layer" + host + "/file", "kept");
    bind = {host + "/file"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.read("/layer" + host + "/file"), "kept");
}

TEST_F(BindLayer, PassesAnEmptyPathOver) {
    bind = {""};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(BindLayer, NeedsNoPlaceForTheRootItself) {
    bind = {"/"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(BindLayer, ReachesNothingOutsideThroughTwoDots) {
    lower.write("/host/file", "");
    bind = {"/.." + host + "/../host/file"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer" + host + "/file"), static_cast<mode_t>(S_IFREG | 0640));
}

}  // namespace
