#include "libkiv/cgroup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>

#include "../fs/temporary_directory.h"
#include "../util/failure_of.h"

namespace {

constexpr uid_t kAccount = 64'123;

std::string failureBelow(const std::string& root) {
    return failureOf([&root] { enterCgroup(kAccount, root); });
}

TEST(Cgroup, IsNotEnteredWhereNoHierarchyIsMounted) {
    TemporaryDirectory directory;
    EXPECT_EQ(failureBelow(directory.path),
              directory.path + ": no cgroup v2 file system is mounted here");
    EXPECT_FALSE(directory.has("/user.slice"));
}

TEST(Cgroup, IsNotCreatedInAFolderThatOnlyLooksLikeOne) {
    TemporaryDirectory directory;
    directory.write("/cgroup.subtree_control", "");
    directory.write("/user.slice/user-64123.slice/kiv/cgroup.procs", "");
    EXPECT_EQ(failureBelow(directory.path),
              directory.path + ": no cgroup v2 file system is mounted here");
    EXPECT_EQ(directory.read("/user.slice/user-64123.slice/kiv/cgroup.procs"), "");
}

TEST(Cgroup, NamesAMissingRoot) {
    TemporaryDirectory directory;
    EXPECT_EQ(failureBelow(directory.at("/absent")),
              directory.at("/absent") + ": No such file or directory");
}

TEST(Cgroup, NamesARootThatIsNotADirectory) {
    TemporaryDirectory directory;
    EXPECT_EQ(failureBelow(directory.write("/file", "")),
              directory.at("/file") + ": Not a directory");
}

/// A directory whose cgroup.subtree_control records everything that is written to it, because the
/// kernel acts on every write: a FIFO that is open at both ends.
class RecordingCgroup : public testing::Test {
protected:
    RecordingCgroup() {
        const std::string path = directory.at("/cgroup.subtree_control");
        EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
        written = FileDescriptor(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
        parent = FileDescriptor(::open(directory.path.c_str(), O_PATH | O_CLOEXEC));
    }

    std::string asked() const {
        std::array<char, 100> text{};
        const ssize_t size = ::read(written.get(), text.data(), text.size());
        return std::string(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    }

    TemporaryDirectory directory;
    FileDescriptor written;
    FileDescriptor parent;
};

TEST_F(RecordingCgroup, IsAskedToCountProcessesAndMemoryBeforeAChildIsMade) {
    EXPECT_TRUE(openOrMakeCgroup(parent, "kiv").valid());
    EXPECT_EQ(asked(), "+pids+memory");
    EXPECT_TRUE(directory.has("/kiv"));
}

TEST_F(RecordingCgroup, IsAskedForNothingWhenTheChildExists) {
    directory.makeDirectory("/kiv");
    EXPECT_TRUE(openOrMakeCgroup(parent, "kiv").valid());
    EXPECT_EQ(asked(), "");
}

TEST(CgroupLeaf, IsLimited) {
    TemporaryDirectory directory;
    directory.write("/pids.max", "max");
    const FileDescriptor leaf(::open(directory.path.c_str(), O_PATH | O_CLOEXEC));
    limitProcesses(leaf);
    EXPECT_EQ(directory.read("/pids.max"), "512");
}

TEST(CgroupLeaf, NeedsNoController) {
    TemporaryDirectory directory;
    const FileDescriptor leaf(::open(directory.path.c_str(), O_PATH | O_CLOEXEC));
    limitProcesses(leaf);
    EXPECT_FALSE(directory.has("/pids.max"));
}

TEST_F(RecordingCgroup, KeepsTheLimitThatALeafHas) {
    directory.makeDirectory("/kiv");
    directory.write("/kiv/pids.max", "max");
    EXPECT_TRUE(openOrMakeLeaf(parent, directory.at("/absent")).valid());
    EXPECT_EQ(directory.read("/kiv/pids.max"), "max");
}

TEST_F(RecordingCgroup, HasNoChildWhereAFileIsInItsPlace) {
    directory.write("/kiv", "");
    EXPECT_FALSE(openOrMakeCgroup(parent, "kiv").valid());
    EXPECT_EQ(asked(), "");
}

}  // namespace
