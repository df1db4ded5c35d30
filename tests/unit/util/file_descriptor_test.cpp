#include "util/file_descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <utility>

namespace {

int openNull() {
    return ::open("/dev/null", O_RDWR | O_CLOEXEC);
}

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) != -1;
}

TEST(FileDescriptor, ClosesWhatItHolds) {
    const int opened = openNull();
    {
        const FileDescriptor owner(opened);
        EXPECT_EQ(owner.get(), opened);
        EXPECT_TRUE(isOpen(opened));
    }
    EXPECT_FALSE(isOpen(opened));
}

TEST(FileDescriptor, IsInvalidWithoutADescriptor) {
    EXPECT_FALSE(FileDescriptor().valid());
    EXPECT_FALSE(FileDescriptor(-1).valid());
    EXPECT_TRUE(FileDescriptor(openNull()).valid());
}

TEST(FileDescriptor, PassesItsDescriptorOnWhenMoved) {
    const int opened = openNull();
    FileDescriptor first(opened);
    {
        const FileDescriptor second(std::move(first));
        EXPECT_EQ(second.get(), opened);
        EXPECT_FALSE(first.valid());  // NOLINT(bugprone-use-after-move): that is the promise
        EXPECT_TRUE(isOpen(opened));
    }
    EXPECT_FALSE(isOpen(opened));
}

TEST(FileDescriptor, ClosesTheOldOneWhenAssigned) {
    const int old = openNull();
    const int next = openNull();
    FileDescriptor owner(old);
    owner = FileDescriptor(next);
    EXPECT_FALSE(isOpen(old));
    EXPECT_TRUE(isOpen(next));
    EXPECT_EQ(owner.get(), next);
}

TEST(FileDescriptor, SurvivesAnAssignmentToItself) {
    FileDescriptor owner(openNull());
    const int opened = owner.get();
    FileDescriptor& same = owner;
    owner = std::move(same);
    EXPECT_EQ(owner.get(), opened);
    EXPECT_TRUE(isOpen(opened));
}

TEST(FileDescriptor, LeavesAReleasedOneOpen) {
    int released = -1;
    {
        FileDescriptor owner(openNull());
        released = owner.release();
        EXPECT_FALSE(owner.valid());
    }
    EXPECT_TRUE(isOpen(released));
    ::close(released);
}

TEST(FileDescriptor, ClosesOnceWhenReset) {
    FileDescriptor owner(openNull());
    const int opened = owner.get();
    owner.reset();
    EXPECT_FALSE(isOpen(opened));
    const int reused = openNull();
    ASSERT_EQ(reused, opened);
    owner.reset();
    EXPECT_TRUE(isOpen(reused));
    ::close(reused);
}

}  // namespace
