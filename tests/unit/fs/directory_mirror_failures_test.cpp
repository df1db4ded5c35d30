// What mirroring meets in trees that are not as they should be.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "../util/child_process.h"
#include "fs/directory_mirror.h"
#include "narrowed_process.h"
#include "temporary_directory.h"

namespace {

class UnusualMirror : public testing::Test {
protected:
    UnusualMirror() {
        directory.makeDirectory("/src");
        directory.makeDirectory("/dst");
    }

    bool mirror(const std::list<std::string>& components) {
        std::string source = directory.at("/src");
        std::string target = directory.at("/dst");
        testing::internal::CaptureStderr();
        const bool result = recMkDir(source, target, components);
        errors = testing::internal::GetCapturedStderr();
        return result;
    }

    TemporaryDirectory directory;
    std::string errors;
};

TEST_F(UnusualMirror, ReportsADirectoryInWhosePlaceADanglingLinkStands) {
    directory.makeDirectory("/src/etc");
    std::filesystem::create_symlink("nowhere", directory.at("/dst/etc"));
    EXPECT_FALSE(mirror({"etc"}));
    EXPECT_EQ(errors, "mkdir(" + directory.at("/dst/etc") + ") failed (1): File exists\n");
}

TEST_F(UnusualMirror, StopsAtTheFirstDirectoryThatCannotBeMade) {
    directory.makeDirectory("/src/etc/ssh");
    std::filesystem::create_symlink("nowhere", directory.at("/dst/etc"));
    EXPECT_FALSE(mirror({"etc", "ssh", "absent"}));
    EXPECT_EQ(errors, "mkdir(" + directory.at("/dst/etc") + ") failed (1): File exists\n");
    EXPECT_FALSE(directory.has("/dst/nowhere"));
}

TEST_F(UnusualMirror, ReportsATargetInALoopOfLinks) {
    directory.makeDirectory("/src/etc");
    std::filesystem::create_symlink("etc", directory.at("/dst/etc"));
    EXPECT_FALSE(mirror({"etc"}));
    EXPECT_EQ(errors, directory.at("/dst/etc") + ": Too many levels of symbolic links\n");
}

TEST_F(UnusualMirror, ReportsANameThatIsTooLong) {
    const std::string name(256, 'x');
    EXPECT_FALSE(mirror({name}));
    EXPECT_EQ(errors, "recMkDir: '" + directory.at("/src/") + name + "' doesn't exist\n");
}

TEST_F(UnusualMirror, DoesNotGiveAReasonForAMissingSource) {
    directory.write("/src/file", "");
    EXPECT_FALSE(mirror({"file", "below"}));
    EXPECT_EQ(errors, "recMkDir: '" + directory.at("/src/file/below") + "' doesn't exist\n");
}

TEST_F(UnusualMirror, FollowsALinkInTheSource) {
    directory.makeDirectory("/elsewhere/ssh", 0711);
    std::filesystem::create_symlink(directory.at("/elsewhere"), directory.at("/src/etc"));
    EXPECT_TRUE(mirror({"etc", "ssh"}));
    EXPECT_EQ(directory.mode("/dst/etc/ssh"), static_cast<mode_t>(S_IFDIR | 0711));
}

TEST_F(UnusualMirror, FollowsALinkInTheTarget) {
    directory.makeDirectory("/src/etc/ssh");
    directory.makeDirectory("/elsewhere");
    std::filesystem::create_symlink(directory.at("/elsewhere"), directory.at("/dst/etc"));
    EXPECT_TRUE(mirror({"etc", "ssh"}));
    EXPECT_TRUE(directory.has("/elsewhere/ssh"));
}

TEST_F(UnusualMirror, MakesADirectoryAlsoForAFile) {
    directory.write("/src/file", "");
    ::chmod(directory.at("/src/file").c_str(), 0640);
    EXPECT_TRUE(mirror({"file"}));
    EXPECT_EQ(directory.mode("/dst/file"), static_cast<mode_t>(S_IFDIR | 0640));
}

TEST_F(UnusualMirror, GrowsTheCallersPathsAlsoWhenTheSourceIsMissing) {
    std::string source = directory.at("/src");
    std::string target = directory.at("/dst");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(recMkDir(source, target, {"absent", "deeper"}));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(source, directory.at("/src/absent"));
    EXPECT_EQ(target, directory.at("/dst/absent"));
}

TEST_F(UnusualMirror, DoesNotGrowTheCallersPathsByAnEmptyComponent) {
    directory.makeDirectory("/src/etc");
    std::string source = directory.at("/src");
    std::string target = directory.at("/dst");
    EXPECT_TRUE(recMkDir(source, target, {"", "etc"}));
    EXPECT_EQ(source, directory.at("/src"));
    EXPECT_TRUE(directory.has("/dst/etc"));
}

TEST_F(UnusualMirror, MakesTheTargetItselfForAnEmptyComponent) {
    std::string source = directory.at("/src");
    std::string target = directory.at("/new");
    EXPECT_TRUE(recMkDir(source, target, {""}));
    EXPECT_TRUE(directory.has("/new"));
}

TEST_F(UnusualMirror, MirrorsADeepChain) {
    std::list<std::string> components;
    std::string path;
    for (int level = 0; level < 40; ++level) {
        components.push_back("level" + std::to_string(level));
        path += "/" + components.back();
    }
    directory.makeDirectory("/src" + path);
    EXPECT_TRUE(mirror(components));
    EXPECT_TRUE(directory.has("/dst" + path));
}

TEST_F(UnusualMirror, WarnsWhenTheOwnerCannotBeCopiedAndGoesOn) {
    giveToNobody(directory.path);
    const std::string target = directory.at("/dst");
    const auto result = inChild([&target] {
        dropPrivileges();
        std::string source;  // the running host: root owns these
        std::string copy = target;
        return recMkDir(source, copy, {"usr", "lib"}) ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, "WARN: chown(" + target +
                                      "/usr) failed: Operation not permitted\n" + "WARN: chown(" +
                                      target + "/usr/lib) failed: Operation not permitted\n");
    EXPECT_TRUE(directory.has("/dst/usr/lib"));
}

TEST_F(UnusualMirror, ReportsADirectoryWithoutTheRightToWriteIntoItsParent) {
    directory.makeDirectory("/src/etc");
    giveToNobody(directory.path);
    directory.makeDirectory("/dst", 0500);
    const auto result = inChild([this] {
        dropPrivileges();
        std::string source = directory.at("/src");
        std::string target = directory.at("/dst");
        return recMkDir(source, target, {"etc"}) ? 1 : 0;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput,
              "mkdir(" + directory.at("/dst/etc") + ") failed (1): Permission denied\n");
}

TEST_F(UnusualMirror, ReportsATargetThatMayNotBeLookedInto) {
    directory.makeDirectory("/src/etc");
    giveToNobody(directory.path);
    directory.makeDirectory("/dst", 0600);
    const auto result = inChild([this] {
        dropPrivileges();
        std::string source = directory.at("/src");
        std::string target = directory.at("/dst");
        return recMkDir(source, target, {"etc"}) ? 1 : 0;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, directory.at("/dst/etc") + ": Permission denied\n");
}

TEST_F(UnusualMirror, AppliesAUmaskThatTakesAlmostEverything) {
    directory.makeDirectory("/src/open", 01777);
    const mode_t previous = ::umask(077);
    EXPECT_TRUE(mirror({"open"}));
    ::umask(previous);
    EXPECT_EQ(directory.mode("/dst/open"), static_cast<mode_t>(S_IFDIR | 01700));
}

}  // namespace
