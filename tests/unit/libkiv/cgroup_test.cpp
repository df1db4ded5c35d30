#include "libkiv/cgroup.h"

#include <gtest/gtest.h>

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

TEST(Cgroup, IsNotMadeOfAFolderThatLooksLikeOne) {
    TemporaryDirectory directory;
    directory.write("/cgroup.subtree_control", "");
    directory.write("/user.slice/user-64123.slice/kiv/cgroup.procs", "");
    EXPECT_EQ(failureBelow(directory.path),
              directory.path + ": no cgroup v2 file system is mounted here");
    EXPECT_EQ(directory.read("/user.slice/user-64123.slice/kiv/cgroup.procs"), "");
}

TEST(Cgroup, NamesARootThatIsNotThere) {
    TemporaryDirectory directory;
    EXPECT_EQ(failureBelow(directory.at("/absent")),
              directory.at("/absent") + ": No such file or directory");
}

TEST(Cgroup, NamesARootThatIsNoDirectory) {
    TemporaryDirectory directory;
    EXPECT_EQ(failureBelow(directory.write("/file", "")),
              directory.at("/file") + ": Not a directory");
}

}  // namespace
