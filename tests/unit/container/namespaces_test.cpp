#include "container/namespaces.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "../fs/temporary_directory.h"
#include "../util/child_process.h"
#include "container/fork_unshare.h"

namespace {

std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(NamespaceInode, IsThatOfTheProcesssLink) {
    struct stat status {};
    ASSERT_EQ(::stat("/proc/self/ns/mnt", &status), 0);
    EXPECT_EQ(getNamespaceInode(::getpid(), "mnt"), status.st_ino);
    EXPECT_NE(getNamespaceInode(::getpid(), "net"), status.st_ino);
}

TEST(NamespaceInode, OfNoProcessIsAnErrorWithItsPath) {
    EXPECT_EQ(failureOf([] { getNamespaceInode(0, "mnt"); }),
              "/proc/0/ns/mnt: stat() failed: No such file or directory");
}

TEST(EnsureFileExists, CreatesAnEmptyFileOfMode0600) {
    TemporaryDirectory directory;
    ensureFileExists(directory.at("/file"));
    EXPECT_EQ(directory.mode("/file"), static_cast<mode_t>(S_IFREG | 0600));
    EXPECT_EQ(directory.read("/file"), "");
}

TEST(EnsureFileExists, LeavesWhatExistsAlone) {
    TemporaryDirectory directory;
    directory.write("/file", "content");
    ensureFileExists(directory.at("/file"));
    ensureFileExists(directory.path);
    EXPECT_EQ(directory.read("/file"), "content");
}

TEST(EnsureFileExists, ReportsAMissingParent) {
    TemporaryDirectory directory;
    const std::string path = directory.at("/absent/file");
    EXPECT_EQ(failureOf([&path] { ensureFileExists(path); }),
              path + ": cannot create: No such file or directory");
}

TEST(EnsureFileExists, ReportsAPathThatCannotBeExamined) {
    TemporaryDirectory directory;
    const std::string path = directory.write("/file", "") + "/below";
    EXPECT_EQ(failureOf([&path] { ensureFileExists(path); }), path + ": Not a directory");
}

TEST(FileIdentity, StaysWhileTheFileStays) {
    TemporaryDirectory directory;
    const std::string path = directory.write("/file", "");
    const auto first = identityOf(path);
    ASSERT_TRUE(first);
    directory.write("/file", "changed");
    EXPECT_EQ(identityOf(path), first);
    EXPECT_NE(identityOf(directory.write("/other", "")), first);
}

TEST(FileIdentity, HoldsTheInodeNumber) {
    const auto identity = identityOf("/proc/self/ns/net");
    ASSERT_TRUE(identity);
    EXPECT_EQ(identity->inode, getNamespaceInode(::getpid(), "net"));
    EXPECT_NE(identity->mount, 0U);
}

TEST(FileIdentity, OfNothingIsNone) {
    TemporaryDirectory directory;
    EXPECT_FALSE(identityOf(directory.at("/absent")));
}

TEST(IsNamespace, TellsNamespacesFromOtherFiles) {
    TemporaryDirectory directory;
    EXPECT_TRUE(isNamespace("/proc/self/ns/ipc"));
    EXPECT_FALSE(isNamespace("/proc/self/status"));
    EXPECT_FALSE(isNamespace(directory.write("/alice@ipc", "")));
    EXPECT_FALSE(isNamespace(directory.at("/absent")));
}

TEST(ForkUnshare, HoldsTheChildUntilItIsReleased) {
    const auto result = inChild([] {
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            ::_exit(42);
        }
        int status = 0;
        ::usleep(50'000);
        const bool waiting = ::waitpid(child, &status, WNOHANG) == 0;
        ::close(sync);
        ::waitpid(child, &status, 0);
        return waiting && WIFEXITED(status) && WEXITSTATUS(status) == 42 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, "");
}

TEST(ForkUnshare, ReleasesTheChildAlsoByAByte) {
    const auto result = inChild([] {
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            ::_exit(42);
        }
        int status = 0;
        const bool written = ::write(sync, "x", 1) == 1;
        ::waitpid(child, &status, 0);
        return written && WEXITSTATUS(status) == 42 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ForkUnshare, ReturnsWhenTheChildCannotUnshare) {
    const auto result = inChild([] {
        int sync = -1;
        // a flag that unshare(2) does not take, for root and everybody else
        const pid_t child = forkUnshare(CLONE_SETTLS, sync);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    });
    EXPECT_EQ(outcome(result), 1);
    EXPECT_EQ(result.errorOutput, "unshare() failed: Invalid argument\n");
}

TEST(ForkUnshare, PutsTheChildAtTheRootDirectory) {
    const auto result = inChild([] {
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            char directory[64] = "";
            ::_exit(::getcwd(directory, sizeof directory) != nullptr && directory[1] == '\0' ? 0
                                                                                             : 1);
        }
        ::close(sync);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    });
    EXPECT_EQ(outcome(result), 0);
}

}  // namespace
