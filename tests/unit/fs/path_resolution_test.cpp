#include "fs/path_resolution.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/openat2.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <functional>

#include "../util/child_process.h"
#include "temporary_directory.h"

namespace {

/// Makes openat2 fail with `error` for the rest of this process, as old kernels and filters do.
void denyOpenat2(unsigned error) {
    std::array<sock_filter, 4> rules = {{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    sock_fprog program = {static_cast<unsigned short>(rules.size()), rules.data()};
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

/// Every case holds with openat2 and without.
class PathResolution : public testing::TestWithParam<unsigned> {
protected:
    PathResolution() {
        directory.makeDirectory("/root/etc/ssh");
        directory.write("/root/etc/motd", "text");
        std::filesystem::create_symlink("/", directory.at("/root/up"));
        std::filesystem::create_symlink("etc", directory.at("/root/link"));
    }

    /// The errno of an opening, 0 for success.
    int errorOf(const std::function<FileDescriptor()>& opening) {
        const auto result = inChild([&opening] {
            if (GetParam() != 0) {
                denyOpenat2(GetParam());
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

TEST_P(PathResolution, WithoutLinksTellsWhatIsMissing) {
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

TEST_P(PathResolution, BeneathTellsWhatIsMissing) {
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

TEST(OpenThroughRootLinks, TellsWhatIsMissing) {
    EXPECT_FALSE(openThroughRootLinks("/absent/x", LastLink::Follow).valid());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(openThroughRootLinks("", LastLink::Follow).valid());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(openThroughRootLinks("/etc/passwd/x", LastLink::Follow).valid());
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(OpenThroughRootLinks, EndsInALoopOfLinks) {
    if (::geteuid() != 0) {
        // links of another user end it sooner, with the same error
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

}  // namespace
