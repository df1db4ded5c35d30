// What the descriptors of resolved paths are, and that they are the right file's, with openat2 and
// without it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <filesystem>

#include "../util/child_process.h"
#include "fs/path_resolution.h"
#include "narrowed_process.h"
#include "temporary_directory.h"

namespace {

constexpr int kAsWanted = 0;
constexpr int kSomethingElse = 200;  // above every errno that is looked for

class OpenedPath : public testing::TestWithParam<unsigned> {
protected:
    OpenedPath() {
        directory.write("/root/etc/passwd", "text");
        directory.makeDirectory("/root/etc/ssh");
        directory.makeDirectory("/outside");
    }

    /// `check`'s result in a child in which openat2 fails as the parameter says.
    static int inNarrowedChild(const std::function<int()>& check) {
        return outcome(inChild([&check] {
            if (GetParam() != 0) {
                denySystemCall(SYS_openat2, GetParam());
            }
            return check();
        }));
    }

    /// Whether `opened` is the file `path`; the errno when it is nothing.
    static int isFile(const FileDescriptor& opened, const std::string& path) {
        if (!opened.valid()) {
            return errno;
        }
        struct stat found {};
        struct stat wanted {};
        const bool same = ::fstat(opened.get(), &found) == 0 &&
                          ::lstat(path.c_str(), &wanted) == 0 && found.st_ino == wanted.st_ino &&
                          found.st_dev == wanted.st_dev;
        return same ? kAsWanted : kSomethingElse;
    }

    int beneathIs(const std::string& path, const std::string& wanted) {
        return inNarrowedChild([this, &path, &wanted] {
            const FileDescriptor root(::open(directory.at("/root").c_str(), O_PATH | O_CLOEXEC));
            return isFile(openBeneath(root, path), directory.at(wanted));
        });
    }

    int withoutLinksIs(const std::string& path, const std::string& wanted) {
        return inNarrowedChild([&path, &wanted] { return isFile(openWithoutLinks(path), wanted); });
    }

    TemporaryDirectory directory;
};

INSTANTIATE_TEST_SUITE_P(Openat2, OpenedPath,
                         testing::Values(0U, unsigned{ENOSYS}, unsigned{EPERM}));

bool isPathOnly(const FileDescriptor& opened) {
    return (::fcntl(opened.get(), F_GETFL) & O_PATH) != 0 &&
           (::fcntl(opened.get(), F_GETFD) & FD_CLOEXEC) != 0;
}

TEST_P(OpenedPath, IsOpenedForItsPathAloneAndClosedOnExec) {
    const int result = inNarrowedChild([this] {
        const FileDescriptor root(::open(directory.at("/root").c_str(), O_PATH | O_CLOEXEC));
        const std::string file = directory.at("/root/etc/passwd");
        return isPathOnly(openBeneath(root, "/etc/passwd")) && isPathOnly(openWithoutLinks(file)) &&
                       isPathOnly(openThroughRootLinks(file, LastLink::Keep))
                   ? 0
                   : 1;
    });
    EXPECT_EQ(result, 0);
}

TEST_P(OpenedPath, NeedsNoRightToReadTheFile) {
    giveToNobody(directory.path);
    ::chmod(directory.at("/root/etc/passwd").c_str(), 0000);
    const int result = inNarrowedChild([this] {
        dropPrivileges();
        const std::string file = directory.at("/root/etc/passwd");
        return isFile(openWithoutLinks(file), file);
    });
    EXPECT_EQ(result, kAsWanted);
}

TEST_P(OpenedPath, NeedsTheRightToSearchEveryDirectory) {
    giveToNobody(directory.path);
    directory.makeDirectory("/root/etc", 0600);
    const int result = inNarrowedChild([this] {
        dropPrivileges();
        return isFile(openWithoutLinks(directory.at("/root/etc/passwd")), "/");
    });
    directory.makeDirectory("/root/etc", 0700);
    EXPECT_EQ(result, EACCES);
}

TEST_P(OpenedPath, BeneathIsNotTheRunningSystemsOwn) {
    EXPECT_EQ(beneathIs("/etc/passwd", "/root/etc/passwd"), kAsWanted);
    EXPECT_EQ(beneathIs("etc/passwd", "/root/etc/passwd"), kAsWanted);
}

TEST_P(OpenedPath, BeneathOfNoNameIsTheDirectoryItself) {
    EXPECT_EQ(beneathIs("", "/root"), kAsWanted);
    EXPECT_EQ(beneathIs("/", "/root"), kAsWanted);
    EXPECT_EQ(beneathIs("///", "/root"), kAsWanted);
    EXPECT_EQ(beneathIs("/.", "/root"), kAsWanted);
}

TEST_P(OpenedPath, BeneathSkipsSuperfluousSlashesAndDots) {
    EXPECT_EQ(beneathIs("//etc/.//ssh//", "/root/etc/ssh"), kAsWanted);
}

TEST_P(OpenedPath, BeneathIsNeverTheDirectoryAbove) {
    EXPECT_EQ(beneathIs("..", "/"), EXDEV);
    EXPECT_EQ(beneathIs("/..", "/"), EXDEV);
    EXPECT_EQ(beneathIs("../outside", "/outside"), EXDEV);
    EXPECT_EQ(beneathIs("/etc/ssh/../../../outside", "/outside"), EXDEV);
}

TEST_P(OpenedPath, BeneathGoesUpInsideOnlyWhereTheKernelWatches) {
    const int wanted = GetParam() == 0 ? kAsWanted : EXDEV;
    EXPECT_EQ(beneathIs("/etc/../etc/ssh", "/root/etc/ssh"), wanted);
}

TEST_P(OpenedPath, BeneathDoesNotFollowALinkThatStaysInside) {
    std::filesystem::create_symlink("ssh", directory.at("/root/etc/link"));
    EXPECT_EQ(beneathIs("/etc/link", "/root/etc/ssh"), ELOOP);
}

TEST_P(OpenedPath, BeneathRefusesADanglingLink) {
    std::filesystem::create_symlink("nowhere", directory.at("/root/link"));
    EXPECT_EQ(beneathIs("/link", "/root/link"), ELOOP);
}

TEST_P(OpenedPath, BeneathAFileIsNothing) {
    EXPECT_EQ(beneathIs("/etc/passwd/x", "/root/etc/passwd"), ENOTDIR);
}

TEST_P(OpenedPath, OfAFileDoesNotEndInASlash) {
    EXPECT_EQ(beneathIs("/etc/passwd/", "/root/etc/passwd"), ENOTDIR);
    const std::string file = directory.at("/root/etc/passwd");
    EXPECT_EQ(withoutLinksIs(file + "/", file), ENOTDIR);
}

TEST_P(OpenedPath, WithoutLinksIsTheFileOfThatName) {
    const std::string file = directory.at("/root/etc/passwd");
    EXPECT_EQ(withoutLinksIs(file, file), kAsWanted);
    EXPECT_EQ(withoutLinksIs("/", "/"), kAsWanted);
    EXPECT_EQ(withoutLinksIs("//", "/"), kAsWanted);
}

TEST_P(OpenedPath, WithoutLinksGoesUp) {
    EXPECT_EQ(withoutLinksIs(directory.at("/root/etc/../../outside"), directory.at("/outside")),
              kAsWanted);
    EXPECT_EQ(withoutLinksIs("/../usr", "/usr"), kAsWanted);
}

TEST_P(OpenedPath, WithoutLinksIsRelativeToTheWorkingDirectory) {
    const int result = inNarrowedChild([this] {
        require(::chdir(directory.at("/root").c_str()) == 0);
        return isFile(openWithoutLinks("etc/ssh"), directory.at("/root/etc/ssh"));
    });
    EXPECT_EQ(result, kAsWanted);
}

TEST_P(OpenedPath, WithoutLinksRefusesALinkWrittenWithASlashAtItsEnd) {
    std::filesystem::create_symlink("outside", directory.at("/link"));
    EXPECT_EQ(withoutLinksIs(directory.at("/link/"), directory.at("/outside")), ELOOP);
}

TEST_P(OpenedPath, WithoutLinksRefusesALinkBeforeTwoDots) {
    std::filesystem::create_symlink("root/etc", directory.at("/link"));
    EXPECT_EQ(withoutLinksIs(directory.at("/link/../etc"), directory.at("/root/etc")), ELOOP);
}

TEST_P(OpenedPath, WithoutLinksRefusesRootsLinksToo) {
    EXPECT_EQ(withoutLinksIs("/proc/self/status", "/"), ELOOP);
}

TEST_P(OpenedPath, WithoutLinksRefusesTheKernelsOwnLinks) {
    const int result = inNarrowedChild([] {
        const std::string process = "/proc/" + std::to_string(::getpid());
        return isFile(openWithoutLinks(process + "/cwd"), "/");
    });
    EXPECT_EQ(result, ELOOP);
}

TEST_P(OpenedPath, OfANameThatIsTooLongIsNothing) {
    EXPECT_EQ(beneathIs("/" + std::string(256, 'x'), "/root"), ENAMETOOLONG);
    EXPECT_EQ(withoutLinksIs("/" + std::string(256, 'x'), "/"), ENAMETOOLONG);
}

TEST_P(OpenedPath, BeneathAnInvalidDescriptorIsNothing) {
    EXPECT_EQ(inNarrowedChild([] { return isFile(openBeneath(FileDescriptor(), "etc"), "/etc"); }),
              EBADF);
}

TEST_P(OpenedPath, ThroughRootsLinksDoesNotNeedOpenat2) {
    const int result = inNarrowedChild(
        [] { return isFile(openThroughRootLinks("/proc/self", LastLink::Keep), "/proc/self"); });
    EXPECT_EQ(result, kAsWanted);
}

TEST(BindMount, ReturnsTheKernelsRefusal) {
    const auto result = inChild([] {
        dropPrivileges();
        const FileDescriptor root(::open("/", O_PATH | O_CLOEXEC));
        return bindMount(root, root) == -1 ? errno : 0;
    });
    EXPECT_EQ(outcome(result), EPERM);
}

TEST(BindMount, OfNothingIsAnError) {
    const auto result = inChild([] {
        dropPrivileges();
        return bindMount(FileDescriptor(), FileDescriptor()) == -1 ? errno : 0;
    });
    EXPECT_EQ(outcome(result), ENOENT);
}

}  // namespace
