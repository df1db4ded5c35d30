#include "fs/path_resolution.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/openat2.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <functional>

#include "../util/child_process.h"
#include "narrowed_process.h"
#include "temporary_directory.h"

namespace {

/// Every case is tested with openat2(2) and without it.
class PathResolution : public testing::TestWithParam<unsigned> {
protected:
    PathResolution() {
        directory.makeDirectory("/root/etc/ssh");
        directory.write("/root/etc/motd", "text");
        std::filesystem::create_symlink("/", directory.at("/root/up"));
        std::filesystem::create_symlink("etc", directory.at("/root/link"));
    }

    /// The errno of the open call, 0 for success.
    static int errorOf(const std::function<FileDescriptor()>& opening) {
        const auto result = inChild([&opening] {
            if (GetParam() != 0) {
                denySystemCall(SYS_openat2, GetParam());
            }
            return opening().valid() ? 0 : errno;
        });
        return outcome(result);
    }

    int withoutLinks(const std::string& path) {
        return errorOf([&path] { return openWithoutLinks(path); });
    }

    int beneath(const std::string& path) {
        const FileDescriptor root(::open(directory.at("/root").c_str(), O_PATH | O_DIRECTORY));
        return errorOf([&root, &path] { return openBeneath(root, path); });
    }

    TemporaryDirectory directory;
};

INSTANTIATE_TEST_SUITE_P(Openat2, PathResolution,
                         testing::Values(0U, unsigned{ENOSYS}, unsigned{EPERM}));

TEST_P(PathResolution, WithoutLinksOpensPlainPaths) {
    EXPECT_EQ(withoutLinks(directory.at("/root/etc/ssh")), 0);
    EXPECT_EQ(withoutLinks(directory.at("/root/etc/motd")), 0);
    EXPECT_EQ(withoutLinks("/"), 0);
}

TEST_P(PathResolution, WithoutLinksRefusesALinkAnywhere) {
    EXPECT_EQ(withoutLinks(directory.at("/root/link/ssh")), ELOOP);
    EXPECT_EQ(withoutLinks(directory.at("/root/link")), ELOOP);
}

TEST_P(PathResolution, WithoutLinksReportsAMissingPath) {
    EXPECT_EQ(withoutLinks(directory.at("/root/absent")), ENOENT);
    EXPECT_EQ(withoutLinks(directory.at("/root/etc/motd/x")), ENOTDIR);
    EXPECT_EQ(withoutLinks(""), ENOENT);
}

TEST_P(PathResolution, BeneathOpensPathsWithAndWithoutALeadingSlash) {
    EXPECT_EQ(beneath("/etc/ssh"), 0);
    EXPECT_EQ(beneath("etc/motd"), 0);
    EXPECT_EQ(beneath("//etc//ssh/"), 0);
    EXPECT_EQ(beneath("/"), 0);
    EXPECT_EQ(beneath(""), 0);
}

TEST_P(PathResolution, BeneathDoesNotLeave) {
    EXPECT_EQ(beneath("/../outside"), EXDEV);
    EXPECT_EQ(beneath("/etc/../../outside"), EXDEV);
}

TEST_P(PathResolution, BeneathRefusesLinks) {
    EXPECT_EQ(beneath("/up/etc"), ELOOP);
    EXPECT_EQ(beneath("/link/ssh"), ELOOP);
    EXPECT_EQ(beneath("/link"), ELOOP);
}

TEST_P(PathResolution, BeneathReportsAMissingPath) {
    EXPECT_EQ(beneath("/absent"), ENOENT);
}

std::string pathOf(const FileDescriptor& opened) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(opened.get()), error)
        .string();
}

TEST(OpenThroughRootLinks, FollowsLinksThatRootOwns) {
    // /bin -> usr/bin and /proc/self are root's on every Debian
    EXPECT_TRUE(openThroughRootLinks("/proc/self/status", LastLink::Follow).valid());
    const auto bin = openThroughRootLinks("/bin/sh", LastLink::Follow);
    EXPECT_EQ(pathOf(bin), std::filesystem::canonical("/bin/sh").string());
}

TEST(OpenThroughRootLinks, KeepsALinkAtTheEndWhenAsked) {
    EXPECT_EQ(pathOf(openThroughRootLinks("/bin", LastLink::Keep)), "/bin");
}

TEST(OpenThroughRootLinks, RefusesLinksOfOthers) {
    TemporaryDirectory directory;
    directory.makeDirectory("/target/deep");
    const std::string link = directory.at("/link");
    std::filesystem::create_symlink("target", link);
    if (::geteuid() == 0) {
        ASSERT_EQ(::lchown(link.c_str(), 64'001, 64'001), 0);
    }
    EXPECT_FALSE(openThroughRootLinks(link + "/deep", LastLink::Follow).valid());
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(openThroughRootLinks(link, LastLink::Follow).valid());
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(pathOf(openThroughRootLinks(link, LastLink::Keep)), link);
}

TEST(OpenThroughRootLinks, GoesUpAndSkipsSuperfluousSlashes) {
    EXPECT_EQ(pathOf(openThroughRootLinks("//usr/./bin/..//lib/", LastLink::Follow)), "/usr/lib");
    EXPECT_EQ(pathOf(openThroughRootLinks("/../../usr", LastLink::Follow)), "/usr");
}

TEST(OpenThroughRootLinks, ReportsAMissingPath) {
    EXPECT_FALSE(openThroughRootLinks("/absent/x", LastLink::Follow).valid());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(openThroughRootLinks("", LastLink::Follow).valid());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(openThroughRootLinks("/etc/passwd/x", LastLink::Follow).valid());
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(OpenThroughRootLinks, FailsInALoopOfLinks) {
    if (::geteuid() != 0) {
        // links of another user fail sooner, with the same error
        TemporaryDirectory directory;
        std::filesystem::create_symlink("b", directory.at("/b"));
        EXPECT_FALSE(openThroughRootLinks(directory.at("/b/x"), LastLink::Follow).valid());
        EXPECT_EQ(errno, ELOOP);
        return;
    }
    TemporaryDirectory directory;
    std::filesystem::create_symlink("b", directory.at("/a"));
    std::filesystem::create_symlink("a", directory.at("/b"));
    EXPECT_FALSE(openThroughRootLinks(directory.at("/a"), LastLink::Follow).valid());
    EXPECT_EQ(errno, ELOOP);
}

// Links in the path of a home or a bind source: only root's are followed.

std::string follow(const std::string& path) {
    const auto opened = openThroughRootLinks(path, LastLink::Follow);
    return opened.valid() ? pathOf(opened) : "errno " + std::to_string(errno);
}

std::string keep(const std::string& path) {
    const auto opened = openThroughRootLinks(path, LastLink::Keep);
    return opened.valid() ? pathOf(opened) : "errno " + std::to_string(errno);
}

std::string failure(int error) {
    return "errno " + std::to_string(error);
}

/// Links that root owns. Only root can create them; for other users the tests use those of every
/// Linux in /dev: fd leads to /proc/self/fd, stdin to /proc/self/fd/0.
class RootsLinks : public testing::Test {
protected:
    static std::string process() { return "/proc/" + std::to_string(::getpid()); }
};

TEST_F(RootsLinks, AreFollowedOnTheWay) {
    EXPECT_EQ(follow("/proc/self/task"), process() + "/task");
    EXPECT_EQ(keep("/proc/self/task"), process() + "/task");
}

TEST_F(RootsLinks, AreFollowedAtTheEndWhenAsked) {
    EXPECT_EQ(follow("/proc/self"), process());
}

TEST_F(RootsLinks, AreKeptAtTheEndWhenAsked) {
    EXPECT_EQ(keep("/proc/self"), "/proc/self");
}

TEST_F(RootsLinks, WithASlashAfterThemAreFollowedAlsoWhenTheLastIsKept) {
    EXPECT_EQ(keep("/proc/self/"), process());
    EXPECT_EQ(keep("/proc/self//"), process());
}

TEST_F(RootsLinks, OnTheWayAreFollowedAlsoWhenTheLastIsKept) {
    EXPECT_EQ(keep("/proc/self/cwd"), process() + "/cwd");
}

TEST_F(RootsLinks, OfTheHostsLayoutAreFollowed) {
    for (const std::string path : {"/bin", "/lib", "/etc/mtab", "/var/run", "/var/lock"}) {
        std::error_code absent;
        const auto target = std::filesystem::canonical(path, absent);
        if (absent) {
            EXPECT_EQ(follow(path), failure(ENOENT)) << path;
        } else if (!target.string().starts_with("/proc/")) {
            EXPECT_EQ(follow(path), target.string()) << path;
        }
    }
}

TEST_F(RootsLinks, LeadToAFileBelowADirectoryLink) {
    const auto shell = std::filesystem::canonical("/bin/sh");
    EXPECT_EQ(follow("/bin/sh"), shell.string());
}

TEST_F(RootsLinks, ThatLeadNowhereAreMissing) {
    // a descriptor number that no process has
    EXPECT_EQ(follow("/proc/self/fd/2147483647"), failure(ENOENT));
}

class OthersLinks : public testing::Test {
protected:
    OthersLinks() {
        directory.makeDirectory("/target/deep");
        link("target", "/relative");
        link(directory.at("/target"), "/absolute");
        link("/proc/self", "/system");
        link("nowhere", "/dangling");
        link("itself", "/itself");
    }

    void link(const std::string& target, const std::string& name) {
        std::filesystem::create_symlink(target, directory.at(name));
        giveToNobody(directory.at(name));
    }

    TemporaryDirectory directory;
};

TEST_F(OthersLinks, AreNotFollowedAtTheEnd) {
    for (const char* name : {"/relative", "/absolute", "/system", "/dangling", "/itself"}) {
        EXPECT_EQ(follow(directory.at(name)), failure(ELOOP)) << name;
    }
}

TEST_F(OthersLinks, AreNotFollowedOnTheWay) {
    for (const LastLink last : {LastLink::Follow, LastLink::Keep}) {
        EXPECT_FALSE(openThroughRootLinks(directory.at("/relative/deep"), last).valid());
        EXPECT_EQ(errno, ELOOP);
        EXPECT_FALSE(openThroughRootLinks(directory.at("/system/status"), last).valid());
        EXPECT_EQ(errno, ELOOP);
    }
}

TEST_F(OthersLinks, AreNotFollowedBeforeTwoDots) {
    EXPECT_EQ(follow(directory.at("/relative/../target")), failure(ELOOP));
}

TEST_F(OthersLinks, AreNotFollowedWhenWrittenWithASlashAtTheirEnd) {
    EXPECT_EQ(follow(directory.at("/relative/")), failure(ELOOP));
    EXPECT_EQ(keep(directory.at("/relative/")), failure(ELOOP));
}

TEST_F(OthersLinks, AreOpenedThemselvesWhenTheLastIsKept) {
    EXPECT_EQ(keep(directory.at("/dangling")), directory.at("/dangling"));
    struct stat status {};
    const auto opened = openThroughRootLinks(directory.at("/relative"), LastLink::Keep);
    ASSERT_EQ(::fstat(opened.get(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST_F(OthersLinks, AreNotFollowedAfterOneOfRoots) {
    const auto result = inChild([this] {
        require(::chdir(directory.path.c_str()) == 0);
        // the process's user owns its cwd link: followed as root, not as nobody
        dropPrivileges();
        return follow("/proc/self/cwd/target") == failure(ELOOP) ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(PlainPaths, AreOpenedAsTheyAre) {
    const TemporaryDirectory directory;
    const std::string file = directory.write("/dir/file", "");
    EXPECT_EQ(follow(file), file);
    EXPECT_EQ(keep(file), file);
    EXPECT_EQ(follow(directory.at("//dir/./..//dir/file")), file);
}

TEST(PlainPaths, OfTheRootAreTheRoot) {
    EXPECT_EQ(follow("/"), "/");
    EXPECT_EQ(keep("///"), "/");
    EXPECT_EQ(follow("/.."), "/");
}

TEST(PlainPaths, WithoutASlashBeginAtTheRootToo) {
    EXPECT_EQ(follow("proc"), "/proc");
}

TEST(PlainPaths, BelowAFileAreNotOpened) {
    const TemporaryDirectory directory;
    EXPECT_EQ(follow(directory.write("/file", "") + "/below"), failure(ENOTDIR));
    EXPECT_EQ(follow(directory.at("/file/..")), failure(ENOTDIR));
}

TEST(PlainPaths, WithASlashAtTheEndAreDirectories) {
    const TemporaryDirectory directory;
    const std::string slashed = directory.write("/dir/file", "") + "/";
    EXPECT_EQ(follow(slashed), failure(ENOTDIR));
    EXPECT_EQ(keep(slashed), failure(ENOTDIR));
    EXPECT_EQ(follow(directory.at("/dir/")), directory.at("/dir"));
    EXPECT_EQ(keep(directory.at("/dir//")), directory.at("/dir"));
}

TEST(PlainPaths, WithANameThatIsTooLongAreNotOpened) {
    EXPECT_EQ(follow("/" + std::string(256, 'x')), failure(ENAMETOOLONG));
}

/// Only root can create links that root owns; for other users the first link of a chain is refused.
TEST(ChainOfLinks, IsFollowedAsFarAsTheKernelWould) {
    const TemporaryDirectory directory;
    directory.makeDirectory("/0");
    for (int i = 1; i <= 41; ++i) {
        std::filesystem::create_symlink(std::to_string(i - 1),
                                        directory.at("/" + std::to_string(i)));
    }
    const bool root = ::geteuid() == 0;
    EXPECT_EQ(follow(directory.at("/40")), root ? directory.at("/0") : failure(ELOOP));
    EXPECT_EQ(follow(directory.at("/41")), failure(ELOOP));
}

TEST(ChainOfLinks, CountsEveryLinkOfThePath) {
    const TemporaryDirectory directory;
    std::filesystem::create_symlink(".", directory.at("/here"));
    std::string path = directory.path;
    for (int i = 0; i < 41; ++i) {
        path += "/here";
    }
    EXPECT_EQ(follow(path), failure(ELOOP));
    path.resize(path.size() - std::string("/here").size());
    EXPECT_EQ(follow(path), ::geteuid() == 0 ? directory.path : failure(ELOOP));
}

// The descriptors of resolved paths refer to the right file, with openat2(2) and without it.

constexpr int kAsWanted = 0;
constexpr int kSomethingElse = 200;  // above every expected errno

class OpenedPath : public testing::TestWithParam<unsigned> {
protected:
    OpenedPath() {
        directory.write("/root/etc/passwd", "text");
        directory.makeDirectory("/root/etc/ssh");
        directory.makeDirectory("/outside");
    }

    /// The result of `check` in a child in which openat2(2) fails as the parameter says.
    static int inNarrowedChild(const std::function<int()>& check) {
        return outcome(inChild([&check] {
            if (GetParam() != 0) {
                denySystemCall(SYS_openat2, GetParam());
            }
            return check();
        }));
    }

    /// Whether `opened` is the file `path`; the errno when it is invalid.
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

TEST_P(OpenedPath, IsOpenedAsAPathAndClosedOnExec) {
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

TEST_P(OpenedPath, BeneathWithAnEmptyPathIsTheDirectoryItself) {
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

TEST_P(OpenedPath, BeneathGoesUpInside) {
    EXPECT_EQ(beneathIs("/etc/../etc/ssh", "/root/etc/ssh"), kAsWanted);
    EXPECT_EQ(beneathIs("/etc/ssh/../..", "/root"), kAsWanted);
    EXPECT_EQ(beneathIs("/etc/ssh/./..", "/root/etc"), kAsWanted);
}

TEST_P(OpenedPath, BeneathAFileDoesNotGoUp) {
    EXPECT_EQ(beneathIs("/etc/passwd/..", "/root/etc"), ENOTDIR);
    EXPECT_EQ(beneathIs("/etc/passwd/../ssh", "/root/etc/ssh"), ENOTDIR);
}

TEST_P(OpenedPath, BeneathDoesNotFollowALinkThatStaysInside) {
    std::filesystem::create_symlink("ssh", directory.at("/root/etc/link"));
    EXPECT_EQ(beneathIs("/etc/link", "/root/etc/ssh"), ELOOP);
}

TEST_P(OpenedPath, BeneathRefusesADanglingLink) {
    std::filesystem::create_symlink("nowhere", directory.at("/root/link"));
    EXPECT_EQ(beneathIs("/link", "/root/link"), ELOOP);
}

TEST_P(OpenedPath, BeneathAFileIsNotOpened) {
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

TEST_P(OpenedPath, WithANameThatIsTooLongIsNotOpened) {
    EXPECT_EQ(beneathIs("/" + std::string(256, 'x'), "/root"), ENAMETOOLONG);
    EXPECT_EQ(withoutLinksIs("/" + std::string(256, 'x'), "/"), ENAMETOOLONG);
}

TEST_P(OpenedPath, BeneathAnInvalidDescriptorIsNotOpened) {
    EXPECT_EQ(inNarrowedChild([] { return isFile(openBeneath(FileDescriptor(), "etc"), "/etc"); }),
              EBADF);
}

TEST_P(OpenedPath, ThroughRootsLinksDoesNotNeedOpenat2) {
    const int result = inNarrowedChild(
        [] { return isFile(openThroughRootLinks("/proc/self", LastLink::Keep), "/proc/self"); });
    EXPECT_EQ(result, kAsWanted);
}

/// Another process that renames a file without pause while the object exists.
class RenameLoop {
public:
    explicit RenameLoop(const TemporaryDirectory& directory) {
        const std::string one = directory.write("/renamed", "");
        const std::string other = directory.at("/other");
        child = ::fork();
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;) {
                ::rename(one.c_str(), other.c_str());
                ::rename(other.c_str(), one.c_str());
            }
        }
    }
    RenameLoop(const RenameLoop&) = delete;
    RenameLoop& operator=(const RenameLoop&) = delete;
    ~RenameLoop() {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }

private:
    pid_t child = -1;
};

TEST(Openat2Race, WithARenameElsewhereDoesNotStopAPathWithTwoDots) {
    TemporaryDirectory directory;
    directory.makeDirectory("/root/etc/ssh");
    const FileDescriptor root(::open(directory.at("/root").c_str(), O_PATH | O_CLOEXEC));
    const RenameLoop beside(directory);
    int failures = 0;
    for (int i = 0; i < 20'000; ++i) {
        failures += openBeneath(root, "/etc/ssh/../../etc/../etc/ssh").valid() ? 0 : 1;
    }
    EXPECT_EQ(failures, 0);
}

TEST(Openat2Race, ThatIsAlwaysLostEnds) {
    const auto result = inChild([] {
        denySystemCall(SYS_openat2, EAGAIN);
        const FileDescriptor root(::open("/", O_PATH | O_CLOEXEC));
        return openBeneath(root, "/usr/..").valid() ? 0 : errno;
    });
    EXPECT_EQ(outcome(result), EAGAIN);
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
