#include "container/namespaces.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "../fs/narrowed_process.h"
#include "../fs/temporary_directory.h"
#include "../util/child_process.h"
#include "../util/failure_of.h"
#include "container/fork_unshare.h"
#include "util/runtime_directory.h"

namespace {

TEST(NamespaceInode, IsThatOfTheLinkOfTheProcess) {
    struct stat status {};
    ASSERT_EQ(::stat("/proc/self/ns/mnt", &status), 0);
    EXPECT_EQ(getNamespaceInode(::getpid(), "mnt"), status.st_ino);
    EXPECT_NE(getNamespaceInode(::getpid(), "net"), status.st_ino);
}

TEST(NamespaceInode, OfNoProcessIsAnErrorWithItsPath) {
    EXPECT_EQ(failureOf([] { getNamespaceInode(0, "mnt"); }),
              "/proc/0/ns/mnt: stat() failed: No such file or directory");
}

TEST(LinkedInode, IsReadFromOnlyTheLink) {
    struct stat status {};
    ASSERT_EQ(::stat("/proc/self/ns/net", &status), 0);
    const auto result = inChild([&status] {
        denySystemCall(SYS_newfstatat, EACCES);
        return linkedInode("/proc/self/ns/net") == status.st_ino ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(LinkedInode, OfAnotherFileIsTheFiles) {
    TemporaryDirectory directory;
    const std::string file = directory.write("/file", "");
    for (const std::string target : {"file", "net:[]", "net:[12x]", "net:12]", "[12]"}) {
        if (target != "file") {
            std::filesystem::copy_file(file, directory.at("/" + target));
        }
        std::filesystem::remove(directory.at("/link"));
        std::filesystem::create_symlink(target, directory.at("/link"));
        EXPECT_EQ(linkedInode(directory.at("/link")), inodeOf(directory.at("/" + target)))
            << target;
    }
    EXPECT_EQ(linkedInode(file), inodeOf(file));
}

TEST(LinkedInode, OfNothingIsNone) {
    EXPECT_EQ(linkedInode("/proc/0/ns/net"), 0U);
    EXPECT_EQ(errno, ENOENT);
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

TEST(IsNamespace, DistinguishesNamespacesFromOtherFiles) {
    TemporaryDirectory directory;
    EXPECT_TRUE(mayBeNamespace("/proc/self/ns/ipc"));
    EXPECT_FALSE(mayBeNamespace("/proc/self/status"));
    EXPECT_FALSE(mayBeNamespace(directory.write("/alice@ipc", "")));
    EXPECT_FALSE(mayBeNamespace(directory.at("/absent")));
}

// Namespace kinds, their links in /proc, and the files that hold them.

TEST(NamespaceKinds, AreTheNetworkThenIpcThenTheMounts) {
    ASSERT_EQ(std::size(kNamespaceKinds), 3U);
    EXPECT_STREQ(kNamespaceKinds[0].name, "net");
    EXPECT_EQ(kNamespaceKinds[0].flag, 0x40000000);
    EXPECT_STREQ(kNamespaceKinds[1].name, "ipc");
    EXPECT_EQ(kNamespaceKinds[1].flag, 0x08000000);
    EXPECT_STREQ(kNamespaceKinds[2].name, "mnt");
    EXPECT_EQ(kNamespaceKinds[2].flag, 0x00020000);
}

TEST(NamespaceLink, IsInTheProcesssDirectory) {
    EXPECT_EQ(namespaceLink(4711, "net"), "/proc/4711/ns/net");
}

TEST(NamespaceInode, IsTheNumberThatTheKernelWritesInBrackets) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        const std::string link =
            std::filesystem::read_symlink(namespaceLink(::getpid(), kind.name)).string();
        EXPECT_EQ(link, std::string(kind.name) + ":[" +
                            std::to_string(getNamespaceInode(::getpid(), kind.name)) + "]");
    }
}

TEST(NamespaceInode, IsSharedWithAChild) {
    const auto result = inChild([] {
        return getNamespaceInode(::getpid(), "mnt") == getNamespaceInode(::getppid(), "mnt") ? 0
                                                                                             : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(NamespaceInode, OfAProcessThatHasEndedIsAnError) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(failureOf([child] { getNamespaceInode(child, "net"); }),
              "/proc/" + std::to_string(child) +
                  "/ns/net: stat() failed: No such file or "
                  "directory");
}

TEST(NamespaceInode, OfAnUnknownKindIsAnErrorWithItsPath) {
    const std::string link = "/proc/" + std::to_string(::getpid()) + "/ns/absent";
    EXPECT_EQ(failureOf([] { getNamespaceInode(::getpid(), "absent"); }),
              link + ": stat() failed: No such file or directory");
}

TEST(NamespaceFile, HasMode0600UnderAnyUmask) {
    TemporaryDirectory directory;
    const mode_t previous = ::umask(0);
    ensureFileExists(directory.at("/open"));
    ::umask(0277);
    ensureFileExists(directory.at("/closed"));
    ::umask(previous);
    EXPECT_EQ(directory.mode("/open"), static_cast<mode_t>(S_IFREG | 0600));
    EXPECT_EQ(directory.mode("/closed"), static_cast<mode_t>(S_IFREG | 0400));
}

TEST(NamespaceFile, ThatExistsKeepsItsMode) {
    TemporaryDirectory directory;
    directory.write("/file", "");
    ::chmod(directory.at("/file").c_str(), 0444);
    ensureFileExists(directory.at("/file"));
    EXPECT_EQ(directory.mode("/file"), static_cast<mode_t>(S_IFREG | 0444));
}

TEST(NamespaceFile, MayBeOfAnyType) {
    TemporaryDirectory directory;
    ASSERT_EQ(::mkfifo(directory.at("/fifo").c_str(), 0600), 0);
    ensureFileExists(directory.at("/fifo"));
    EXPECT_TRUE(S_ISFIFO(directory.mode("/fifo")));
    ensureFileExists("/dev/null");
}

TEST(NamespaceFile, ReplacedByADanglingLinkCountsAsExisting) {
    TemporaryDirectory directory;
    std::filesystem::create_symlink("nowhere", directory.at("/link"));
    ensureFileExists(directory.at("/link"));
    EXPECT_FALSE(directory.has("/nowhere"));
}

TEST(NamespaceFile, BehindALoopOfLinksIsAnError) {
    TemporaryDirectory directory;
    std::filesystem::create_symlink("loop", directory.at("/loop"));
    const std::string path = directory.at("/loop");
    EXPECT_EQ(failureOf([&path] { ensureFileExists(path); }),
              path + ": Too many levels of symbolic links");
}

TEST(NamespaceFile, OfAnEmptyPathCannotBeCreated) {
    EXPECT_EQ(failureOf([] { ensureFileExists(""); }),
              ": cannot create: No such file or directory");
}

TEST(NamespaceFile, InAFullDescriptorTableCannotBeCreated) {
    TemporaryDirectory directory;
    const std::string path = directory.at("/file");
    const auto result = inChild([&path] {
        leaveDescriptors(0);
        return failureOf([&path] { ensureFileExists(path); }) ==
                       path + ": cannot create: Too many open files"
                   ? 0
                   : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_FALSE(directory.has("/file"));
}

TEST(NamespaceFile, LeavesNoDescriptorOpen) {
    TemporaryDirectory directory;
    const auto result = inChild([&directory] {
        leaveDescriptors(1);
        ensureFileExists(directory.at("/first"));
        ensureFileExists(directory.at("/second"));
        return 0;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_TRUE(directory.has("/second"));
}

}  // namespace
