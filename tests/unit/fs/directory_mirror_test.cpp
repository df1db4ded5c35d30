#include "fs/directory_mirror.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <list>
#include <string>

#include "../util/captured.h"
#include "../util/child_process.h"
#include "narrowed_process.h"
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
        Captured standardError(STDERR_FILENO);
        const bool result = recMkDir(source, target, components);
        errors = standardError.text();
        return result;
    }

    TemporaryDirectory directory;
    std::string source;
    std::string target;
    std::string errors;
    mode_t previousMask;
};

TEST_F(DirectoryMirror, OfNoComponentsChangesNothing) {
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

TEST_F(DirectoryMirror, AcceptsAFileInPlaceOfTheDirectory) {
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

TEST_F(DirectoryMirror, ReportsAMissingSourceAndKeepsTheDirectoriesSoFar) {
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
    Captured standardError(STDERR_FILENO);
    EXPECT_FALSE(recMkDir(source, target, {"absent"}));
    EXPECT_EQ(standardError.text(),
              "mkdir(/proc/self/absent) failed (1): No such file or directory\n");
}

class MirrorOfATree : public testing::Test {
protected:
    MirrorOfATree() : tree(directory.at("/src"), directory.at("/dst")) {
        directory.makeDirectory("/src");
        directory.makeDirectory("/dst");
    }

    bool mirror(const std::list<std::string>& components) {
        Captured standardError(STDERR_FILENO);
        const bool done = tree.mirror(components);
        errors = standardError.text();
        return done;
    }

    TemporaryDirectory directory;
    TreeMirror tree;
    std::string errors;
};

TEST_F(MirrorOfATree, CreatesTheCommonAndTheSeparatePartsOfChains) {
    directory.makeDirectory("/src/usr/share/man", 0750);
    directory.makeDirectory("/src/usr/share/doc", 0700);
    EXPECT_TRUE(mirror({"usr", "share", "man"}));
    EXPECT_TRUE(mirror({"usr", "share", "doc"}));
    EXPECT_EQ(directory.mode("/dst/usr/share/man") & 07777, 0750U);
    EXPECT_EQ(directory.mode("/dst/usr/share/doc") & 07777, 0700U);
}

TEST_F(MirrorOfATree, AcceptsAChainThatAlreadyExists) {
    directory.makeDirectory("/src/usr/share");
    EXPECT_TRUE(mirror({"usr", "share"}));
    EXPECT_TRUE(mirror({"usr"}));
    EXPECT_TRUE(mirror({}));
    EXPECT_TRUE(mirror({"usr", "share"}));
    EXPECT_EQ(errors, "");
}

TEST_F(MirrorOfATree, DoesNotExamineAMirroredDirectoryAgain) {
    directory.makeDirectory("/src/usr/share");
    EXPECT_TRUE(mirror({"usr", "share"}));
    ASSERT_EQ(::rename(directory.at("/src").c_str(), directory.at("/moved").c_str()), 0);
    EXPECT_TRUE(mirror({"usr", "share"}));
    EXPECT_FALSE(mirror({"usr", "share", "doc"}));
    EXPECT_EQ(errors, "recMkDir: '" + directory.at("/src/usr/share/doc") + "' doesn't exist\n");
}

TEST_F(MirrorOfATree, ReportsAFailureEveryTime) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(mirror({"absent", "deeper"}));
        EXPECT_EQ(errors, "recMkDir: '" + directory.at("/src/absent") + "' doesn't exist\n");
    }
    directory.makeDirectory("/src/absent/deeper");
    EXPECT_TRUE(mirror({"absent", "deeper"}));
}

TEST_F(MirrorOfATree, DoesNotTakeOneNameForTheBeginningOfAnother) {
    directory.makeDirectory("/src/usr");
    directory.makeDirectory("/src/usr2");
    EXPECT_TRUE(mirror({"usr"}));
    EXPECT_TRUE(mirror({"usr2"}));
    EXPECT_TRUE(directory.has("/dst/usr2"));
}

// Mirroring of unusual and faulty trees.

using UnusualMirror = DirectoryMirror;

TEST_F(UnusualMirror, ReportsADirectoryReplacedByADanglingLink) {
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
    source = directory.at("/src");
    target = directory.at("/dst");
    Captured standardError(STDERR_FILENO);
    EXPECT_FALSE(recMkDir(source, target, {"absent", "deeper"}));
    EXPECT_EQ(source, directory.at("/src/absent"));
    EXPECT_EQ(target, directory.at("/dst/absent"));
}

TEST_F(UnusualMirror, DoesNotGrowTheCallersPathsByAnEmptyComponent) {
    directory.makeDirectory("/src/etc");
    source = directory.at("/src");
    target = directory.at("/dst");
    EXPECT_TRUE(recMkDir(source, target, {"", "etc"}));
    EXPECT_EQ(source, directory.at("/src"));
    EXPECT_TRUE(directory.has("/dst/etc"));
}

TEST_F(UnusualMirror, MakesTheTargetItselfForAnEmptyComponent) {
    source = directory.at("/src");
    target = directory.at("/new");
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
    target = directory.at("/dst");
    const auto result = inChild([this] {
        dropPrivileges();
        source.clear();  // the running host, where root owns them
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
        source = directory.at("/src");
        target = directory.at("/dst");
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
        source = directory.at("/src");
        target = directory.at("/dst");
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
