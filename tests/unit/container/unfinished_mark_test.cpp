// On a directory of /tmp: only root may set the attributes that marks are.
#include "container/unfinished_mark.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "../fs/temporary_directory.h"

namespace {

class Unfinished : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root may set such an attribute";
        }
    }

    TemporaryDirectory directory;
    FileDescriptor runtime{::open(directory.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

TEST_F(Unfinished, IsNobodyAtFirst) {
    EXPECT_FALSE(UnfinishedMark(runtime, "alice").isSet());
}

TEST_F(Unfinished, IsEachAccountOfItsOwn) {
    UnfinishedMark(runtime, "alice").set("net ");
    EXPECT_TRUE(UnfinishedMark(runtime, "alice").isSet());
    EXPECT_FALSE(UnfinishedMark(runtime, "bob").isSet());
    EXPECT_FALSE(UnfinishedMark(runtime, "alic").isSet());
}

TEST_F(Unfinished, MayBeSetAndClearedTwice) {
    const UnfinishedMark mark(runtime, "alice");
    mark.set("net ");
    mark.set("net ");
    EXPECT_TRUE(mark.isSet());
    mark.clear();
    mark.clear();
    EXPECT_FALSE(mark.isSet());
}

TEST_F(Unfinished, NamesWhatWasMade) {
    const UnfinishedMark mark(runtime, "alice");
    EXPECT_FALSE(mark.names("net"));
    mark.set("net mnt ");
    EXPECT_TRUE(mark.names("net"));
    EXPECT_FALSE(mark.names("ipc"));
    EXPECT_TRUE(mark.names("mnt"));
    mark.set("");
    EXPECT_TRUE(mark.isSet());
    EXPECT_FALSE(mark.names("mnt"));
}

TEST_F(Unfinished, IsSeenInTheAttributesAlone) {
    UnfinishedMark(runtime, "alice").set("net ");
    EXPECT_TRUE(std::filesystem::is_empty(directory.path));
    EXPECT_EQ(::getxattr(directory.path.c_str(), "trusted.kiv.unfinished.alice", nullptr, 0), 4);
}

TEST_F(Unfinished, IsNobodyWithoutTheDirectory) {
    const FileDescriptor none;
    const UnfinishedMark mark(none, "alice");
    mark.set("net ");
    EXPECT_FALSE(mark.isSet());
    mark.clear();
}

}  // namespace
