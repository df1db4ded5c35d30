#include "fs/directory_mirror.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "temporary_directory.h"

namespace {

class DirectoryMirror : public testing::Test {
protected:
    DirectoryMirror() : previousMask(::umask(022)) {
        directory.makeDirectory("/src");
        directory.makeDirectory("/dst");
    }
    ~DirectoryMirror() override { ::umask(previousMask); }

    bool mirror(const std::list<std::string>& components) {
        source = directory.at("/src");
        target = directory.at("/dst");
        testing::internal::CaptureStderr();
        const bool result = recMkDir(source, target, components);
        errors = testing::internal::GetCapturedStderr();
        return result;
    }

    TemporaryDirectory directory;
    std::string source;
    std::string target;
    std::string errors;
    mode_t previousMask;
};

TEST_F(DirectoryMirror, OfNothingTouchesNothing) {
    EXPECT_TRUE(mirror({}));
    EXPECT_EQ(source, directory.at("/src"));
    EXPECT_EQ(target, directory.at("/dst"));
}

TEST_F(DirectoryMirror, CopiesModesAndOwners) {
    directory.makeDirectory("/src/etc/ssh", 0710);
    directory.makeDirectory("/src/etc", 01755);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(directory.at("/src/etc/ssh").c_str(), 64'001, 64'002), 0);
    }
    EXPECT_TRUE(mirror({"etc", "ssh"}));
    EXPECT_EQ(errors, "");
    EXPECT_EQ(directory.mode("/dst/etc"), static_cast<mode_t>(S_IFDIR | 01755));
    EXPECT_EQ(directory.mode("/dst/etc/ssh"), static_cast<mode_t>(S_IFDIR | 0710));
    struct stat status {};
    ASSERT_EQ(::stat(directory.at("/dst/etc/ssh").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, root ? 64'001 : ::geteuid());
    EXPECT_EQ(status.st_gid, root ? 64'002 : ::getegid());
}

TEST_F(DirectoryMirror, AppliesTheUmask) {
    directory.makeDirectory("/src/open", 0777);
    EXPECT_TRUE(mirror({"open"}));
    EXPECT_EQ(directory.mode("/dst/open"), static_cast<mode_t>(S_IFDIR | 0755));
}

TEST_F(DirectoryMirror, LeavesWhatExistsAlone) {
    directory.makeDirectory("/src/etc", 0700);
    directory.makeDirectory("/dst/etc", 0755);
    EXPECT_TRUE(mirror({"etc"}));
    EXPECT_EQ(directory.mode("/dst/etc"), static_cast<mode_t>(S_IFDIR | 0755));
}

TEST_F(DirectoryMirror, TakesAFileInTheTargetForTheDirectory) {
    directory.makeDirectory("/src/etc");
    directory.write("/dst/etc", "file");
    EXPECT_TRUE(mirror({"etc"}));
    EXPECT_EQ(directory.read("/dst/etc"), "file");
}

TEST_F(DirectoryMirror, SkipsEmptyComponents) {
    directory.makeDirectory("/src/etc/ssh");
    EXPECT_TRUE(mirror({"", "etc", "", "ssh"}));
    EXPECT_TRUE(directory.has("/dst/etc/ssh"));
    EXPECT_EQ(target, directory.at("/dst"));
}

TEST_F(DirectoryMirror, GrowsTheCallersPathsByTheFirstComponent) {
    directory.makeDirectory("/src/etc/ssh");
    EXPECT_TRUE(mirror({"etc", "ssh"}));
    EXPECT_EQ(source, directory.at("/src/etc"));
    EXPECT_EQ(target, directory.at("/dst/etc"));
}

TEST_F(DirectoryMirror, ReportsAMissingSourceAndKeepsWhatItMade) {
    directory.makeDirectory("/src/etc");
    EXPECT_FALSE(mirror({"etc", "absent", "deeper"}));
    EXPECT_EQ(errors, "recMkDir: '" + directory.at("/src/etc/absent") + "' doesn't exist\n");
    EXPECT_TRUE(directory.has("/dst/etc"));
}

TEST_F(DirectoryMirror, ReportsATargetThatCannotBeExamined) {
    directory.makeDirectory("/src/etc/ssh");
    directory.write("/dst/etc", "file");
    EXPECT_FALSE(mirror({"etc", "ssh"}));
    EXPECT_EQ(errors, directory.at("/dst/etc/ssh") + ": Not a directory\n");
}

TEST(DirectoryMirrorIntoProc, ReportsADirectoryThatCannotBeMade) {
    TemporaryDirectory directory;
    directory.makeDirectory("/src/absent");
    std::string source = directory.at("/src");
    std::string target = "/proc/self";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(recMkDir(source, target, {"absent"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "mkdir(/proc/self/absent) failed (1): No such file or directory\n");
}

}  // namespace
