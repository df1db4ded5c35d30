// Links on the way to a home or a bind source: those of root are followed, nobody else's.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "../util/child_process.h"
#include "fs/path_resolution.h"
#include "narrowed_process.h"
#include "temporary_directory.h"

namespace {

std::string pathOf(const FileDescriptor& opened) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(opened.get()), error)
        .string();
}

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

/// Links that root owns. Other users cannot make any, and take those that every Linux has in /dev:
/// fd leads to /proc/self/fd, stdin to /proc/self/fd/0.
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
    const std::string found = follow(directory.at("/relative/"));
    EXPECT_EQ(found, failure(ELOOP));
}

TEST_F(OthersLinks, AreOpenedThemselvesWhenTheLastIsKept) {
    EXPECT_EQ(keep(directory.at("/dangling")), directory.at("/dangling"));
    struct stat status {};
    const auto opened = openThroughRootLinks(directory.at("/relative"), LastLink::Keep);
    ASSERT_EQ(::fstat(opened.get(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST_F(OthersLinks, AreNotFollowedBehindOneOfRoots) {
    const auto result = inChild([this] {
        require(::chdir(directory.path.c_str()) == 0);
        // the process's own cwd belongs to its user: root's to follow, nobody's not
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

TEST(PlainPaths, BelowAFileAreNothing) {
    const TemporaryDirectory directory;
    EXPECT_EQ(follow(directory.write("/file", "") + "/below"), failure(ENOTDIR));
    EXPECT_EQ(follow(directory.at("/file/..")), failure(ENOTDIR));
}

TEST(PlainPaths, WithASlashAtTheEndAreDirectories) {
    const TemporaryDirectory directory;
    EXPECT_EQ(follow(directory.write("/dir/file", "") + "/"), failure(ENOTDIR));
    EXPECT_EQ(follow(directory.at("/dir/")), directory.at("/dir"));
}

TEST(PlainPaths, OfANameThatIsTooLongAreNothing) {
    EXPECT_EQ(follow("/" + std::string(256, 'x')), failure(ENAMETOOLONG));
}

/// Only root can make links that root owns; for everybody else the first link of a chain ends it.
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

}  // namespace
