#include "fs/overlay_layer.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "layer_fixture.h"
#include "util/settings.h"

namespace {

TEST_F(OverlayLayer, WithoutRulesStaysEmpty) {
    build();
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
    EXPECT_EQ(output + errors, "");
}

TEST_F(OverlayLayer, HidesNamesThatAreNotInAnAllowlist) {
    for (const char* name : {"ssh", "cron", ".dot", "ssh2"}) {
        lower.write(std::string("/lower/srv/") + name, "");
    }
    allowlists["/srv"] = {"ssh", "absent"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_FALSE(lower.has("/layer/srv/ssh"));
    EXPECT_FALSE(lower.has("/layer/srv/absent"));
    for (const char* name : {"/srv/cron", "/srv/.dot", "/srv/ssh2"}) {
        EXPECT_TRUE(isWhiteout(name));
    }
}

TEST_F(OverlayLayer, KeepsNothingVisibleForAStarInAnAllowlist) {
    lower.write("/lower/srv/ssh", "");
    allowlists["/srv"] = {"*"};
    build();
    EXPECT_TRUE(isWhiteout("/srv/ssh"));
}

TEST_F(OverlayLayer, SkipsAnAllowlistOfAMissingDirectory) {
    allowlists["/absent"] = {"ssh"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_FALSE(lower.has("/layer/absent"));
}

TEST_F(OverlayLayer, ReportsAnAllowlistOfAFileThatIsNotADirectory) {
    lower.write("/lower/file", "");
    allowlists["/file"] = {"ssh"};
    build();
    EXPECT_EQ(errors, "Cannot open " + lower.at("/lower/file") + ": Not a directory\n");
}

TEST_F(OverlayLayer, HidesAPath) {
    lower.makeDirectory("/lower" + host);
    hide = {host + "/secret"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(isWhiteout(host + "/secret"));
}

TEST_F(OverlayLayer, HidesAPathThatIsWrittenWithASlashAtItsEnd) {
    lower.makeDirectory("/lower" + host);
    hide = {host + "/secret/"};
    build();
    EXPECT_TRUE(isWhiteout(host + "/secret"));
}

TEST_F(OverlayLayer, ReportsAHiddenPathBelowALink) {
    std::filesystem::create_symlink(host, lower.at("/link"));
    hide = {lower.at("/link/secret")};
    build();
    EXPECT_EQ(errors, "Path contains symlink, ignoring: " + lower.at("/link/secret") + "\n");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(OverlayLayer, SkipsAHiddenPathWithoutAParent) {
    hide = {host + "/absent/secret", ""};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(OverlayLayer, ReachesNothingOutsideThroughTwoDots) {
    lower.makeDirectory("/lower");
    hide = {"/../escaped", "relative"};
    empty = {"/../lower"};
    bind = {"/../" + host};
    build();
    EXPECT_FALSE(lower.has("/escaped"));
    EXPECT_TRUE(isWhiteout("/escaped"));
    EXPECT_FALSE(lower.has("/layerrelative"));
    EXPECT_TRUE(lower.has("/layer" + host));
}

TEST_F(OverlayLayer, EmptiesADirectoryUnderItsModeAndOwner) {
    lower.makeDirectory("/lower/var/log", 02750);
    if (isRoot()) {
        ASSERT_EQ(::chown(lower.at("/lower/var/log").c_str(), 64'001, 64'002), 0);
    }
    ::chmod(lower.at("/lower/var/log").c_str(), 01750);
    empty = {"/var/log"};
    build();
    EXPECT_EQ(lower.mode("/layer/var/log"), static_cast<mode_t>(S_IFDIR | 01750));
    char value = 0;
    const ssize_t length = ::getxattr(lower.at("/layer/var/log").c_str(), "trusted.overlay.opaque",
                                      &value, sizeof value);
    if (!isRoot()) {
        EXPECT_EQ(errors, "setattr(" + lower.at("/layer/var/log") +
                              ") failed: " + "Operation not permitted\n");
        return;
    }
    EXPECT_EQ(errors, "");
    EXPECT_EQ(length, 1);
    EXPECT_EQ(value, 'y');
    struct stat status {};
    ASSERT_EQ(::stat(lower.at("/layer/var/log").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 64'001U);
    EXPECT_EQ(status.st_gid, 64'002U);
}

TEST_F(OverlayLayer, EmptiesADirectoryThatIsHiddenToo) {
    lower.makeDirectory("/lower" + host + "/dir");
    hide = {host + "/dir"};
    empty = {host + "/dir"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/dir"), static_cast<mode_t>(S_IFDIR | 0755));
    EXPECT_EQ(errors.empty(), isRoot());
}

TEST_F(OverlayLayer, ReportsAnEmptiedDirectoryThatIsMissing) {
    empty = {"/absent"};
    build();
    EXPECT_EQ(errors,
              "stat(" + lower.at("/lower/absent") + ") failed: No such file or directory\n");
}

TEST_F(OverlayLayer, ReportsAnEmptiedDirectoryThatIsAlreadyInTheLayer) {
    lower.makeDirectory("/lower/var/log");
    empty = {"/var/log", "/var", ""};
    build();
    const auto exists = [this](const std::string& name) {
        return lower.at("/layer" + name) + " already exists - don't know...!?\n";
    };
    const std::string wanted = exists("/var") + exists("");
    EXPECT_EQ(errors.substr(errors.size() - wanted.size()), wanted);
}

TEST_F(OverlayLayer, LeavesProcToTheMounts) {
    empty = {"/proc/irq"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_FALSE(lower.has("/layer/proc"));
}

TEST_F(OverlayLayer, PreparesAFileForABindMount) {
    lower.write("/host/file", "content");
    bind = {host + "/file"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer" + host + "/file"), static_cast<mode_t>(S_IFREG | 0640));
    EXPECT_EQ(lower.read("/layer" + host + "/file"), "");
}

TEST_F(OverlayLayer, PreparesADirectoryForABindMount) {
    lower.makeDirectory("/host/dir", 0711);
    bind = {host + "/dir"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer" + host + "/dir"), static_cast<mode_t>(S_IFDIR | 0711));
}

TEST_F(OverlayLayer, SkipsAMissingBindPathUnlessInDebugMode) {
    bind = {host + "/absent"};
    build();
    EXPECT_EQ(errors, "");
    settings().debugMode = 1;
    build();
    EXPECT_EQ(errors, host + "/absent: cannot prepare bind-mount: No such file or directory\n");
}

TEST_F(OverlayLayer, ReportsABindPathThatCannotBeExamined) {
    lower.write("/host/file", "");
    bind = {host + "/file/x"};
    build();
    EXPECT_EQ(errors, host + "/file/x: cannot prepare bind-mount: Not a directory\n");
}

TEST_F(OverlayLayer, ReportsABindFileWhosePathIsInUse) {
    lower.write("/host/file", "");
    lower.makeDirectory("/layer" + host + "/file");
    bind = {host + "/file"};
    build();
    EXPECT_EQ(errors, "touch(" + lower.at("/layer" + host + "/file") +
                          ") for bind-mount failed: Is a directory\n");
}

TEST_F(OverlayLayer, CopiesTheMatchingLinesOfAFilteredFile) {
    lower.write("/host/passwd", "root:0\nmalice:1\nalice:2\nalicex:3\nbin:4");
    ::chmod((host + "/passwd").c_str(), 0640);
    filters[host + "/passwd"] = "^(root|bin|${USER}|x${USER}):";
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(filteredCopy(), "root:0\nalice:2\nbin:4\n");
    EXPECT_EQ(lower.mode("/layer" + host + "/passwd"), static_cast<mode_t>(S_IFREG | 0640));
}

TEST_F(OverlayLayer, TakesTheAccountsNameLiterally) {
    lower.write("/host/passwd", "a.b:1\naxb:2\nx|y:3\nx:4\ny:5\na+(b:6\n");
    filters[host + "/passwd"] = "^(${USER}):";
    build("a.b");
    EXPECT_EQ(filteredCopy(), "a.b:1\n");
    build("x|y");
    EXPECT_EQ(filteredCopy(), "x|y:3\n");
    build("a+(b");
    EXPECT_EQ(filteredCopy(), "a+(b:6\n");
}

TEST_F(OverlayLayer, KeepsNulBytesOfFilteredLines) {
    lower.write("/host/passwd", std::string("alice:a\0b\nbob:\0alice:\n", 22));
    filters[host + "/passwd"] = "^${USER}:";
    build();
    EXPECT_EQ(filteredCopy(), std::string("alice:a\0b\n", 10));
}

TEST_F(OverlayLayer, ShowsNothingOfAFileWhoseExpressionDoesNotCompile) {
    lower.write("/host/passwd", "alice:1\n");
    filters[host + "/passwd"] = "(";
    build();
    EXPECT_EQ(errors, host + "/passwd: Unmatched ( or \\(\n");
    EXPECT_EQ(filteredCopy(), "");
}

TEST_F(OverlayLayer, ReportsAFilteredFileThatIsMissing) {
    filters[host + "/absent"] = "x";
    build();
    EXPECT_EQ(errors, host + "/absent: No such file or directory\n");
}

TEST_F(OverlayLayer, ReplacesAnEarlierFileAtAFilteredFilesPath) {
    lower.write("/host/passwd", "alice:1\n");
    bind = {host + "/passwd"};
    filters[host + "/passwd"] = "alice";
    build();
    EXPECT_EQ(filteredCopy(), "alice:1\n");
}

TEST_F(OverlayLayer, ReportsAFilteredFileWhosePathIsInUse) {
    lower.write("/host/passwd", "alice:1\n");
    lower.makeDirectory("/layer" + host + "/passwd");
    filters[host + "/passwd"] = "alice";
    build();
    EXPECT_EQ(errors,
              lower.at("/layer" + host + "/passwd") + ": error while opening: Is a directory\n");
}

TEST_F(OverlayLayer, ReportsAFilteredFileWhoseParentIsAFile) {
    lower.write("/host/passwd", "alice:1\n");
    lower.write("/layer" + host, "a file in the way");
    filters[host + "/passwd"] = "alice";
    build();
    EXPECT_EQ(errors, lower.at("/layer" + host + "/passwd") +
                          ": error while opening: " + "Not a directory\n");
}

TEST_F(OverlayLayer, PrintsInDebugModeWhatItCreates) {
    lower.write("/host/passwd", "alice:1\n");
    filters[host + "/passwd"] = "alice";
    settings().debugMode = 1;
    build();
    EXPECT_EQ(output, "Creating file: " + lower.at("/layer" + host + "/passwd") + "\n");
}

// Allowlists, hidden paths and emptied directories beyond the simple cases.

class LayerHiding : public OverlayLayer {
protected:
    bool isOpaque(const std::string& name) {
        char value[2] = "";
        return ::getxattr(lower.at("/layer" + name).c_str(), "trusted.overlay.opaque", value,
                          sizeof value) == 1 &&
               value[0] == 'y';
    }

    /// The message for a directory that lacks only the attribute which root sets.
    std::string opaqueFailure(const std::string& name) {
        return isRoot()
                   ? ""
                   : "setattr(" + lower.at("/layer" + name) + ") failed: Operation not permitted\n";
    }

    void expectEmptied(const std::string& name) {
        EXPECT_EQ(errors, opaqueFailure(name));
        EXPECT_TRUE(S_ISDIR(lower.mode("/layer" + name)));
        EXPECT_EQ(isOpaque(name), isRoot());
    }
};

using AllowlistLayer = LayerHiding;
using HiddenLayer = LayerHiding;
using EmptiedLayer = LayerHiding;

TEST_F(AllowlistLayer, MirrorsTheDirectoryAndItsParents) {
    lower.makeDirectory("/lower/srv/sites", 0710);
    lower.makeDirectory("/lower/srv", 0711);
    allowlists["/srv/sites"] = {};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer/srv"), static_cast<mode_t>(S_IFDIR | 0711));
    EXPECT_EQ(lower.mode("/layer/srv/sites"), static_cast<mode_t>(S_IFDIR | 0710));
}

TEST_F(AllowlistLayer, WithoutNamesHidesEverything) {
    lower.write("/lower/srv/a", "");
    lower.makeDirectory("/lower/srv/dir");
    std::filesystem::create_symlink("a", lower.at("/lower/srv/link"));
    allowlists["/srv"] = {};
    build();
    for (const char* name : {"/srv/a", "/srv/dir", "/srv/link"}) {
        EXPECT_TRUE(isWhiteout(name)) << name;
    }
}

TEST_F(AllowlistLayer, ComparesNamesExactly) {
    for (const char* name : {"/lower/srv/Ssh", "/lower/srv/ssh ", "/lower/srv/ss"}) {
        lower.write(name, "");
    }
    allowlists["/srv"] = {"ssh", "/srv/ss", "./ss", "s?", "[S]sh"};
    build();
    for (const char* name : {"/srv/Ssh", "/srv/ssh ", "/srv/ss"}) {
        EXPECT_TRUE(isWhiteout(name)) << name;
    }
}

TEST_F(AllowlistLayer, TakesAQuestionMarkForACharacter) {
    lower.write("/lower/srv/s?", "");
    allowlists["/srv"] = {"s?"};
    build();
    EXPECT_FALSE(lower.has("/layer/srv/s?"));
}

TEST_F(AllowlistLayer, KeepsAnEmptyNameFromMatchingAnything) {
    lower.write("/lower/srv/a", "");
    allowlists["/srv"] = {""};
    build();
    EXPECT_TRUE(isWhiteout("/srv/a"));
}

TEST_F(AllowlistLayer, ServesSeveralDirectories) {
    lower.write("/lower/opt/a", "");
    lower.write("/lower/srv/b", "");
    allowlists["/opt"] = {"b"};
    allowlists["/srv"] = {"b"};
    build();
    EXPECT_TRUE(isWhiteout("/opt/a"));
    EXPECT_FALSE(lower.has("/layer/srv/b"));
}

TEST_F(AllowlistLayer, ContinuesAfterADirectoryThatCannotBeOpened) {
    lower.write("/lower/a", "");
    lower.write("/lower/srv/b", "");
    allowlists["/a"] = {};
    allowlists["/srv"] = {};
    build();
    EXPECT_EQ(errors, "Cannot open " + lower.at("/lower/a") + ": Not a directory\n");
    EXPECT_TRUE(isWhiteout("/srv/b"));
}

TEST_F(AllowlistLayer, ReportsADirectoryThatIsAFileInTheLayer) {
    lower.makeDirectory("/lower/srv");
    lower.write("/layer/srv", "");
    allowlists["/srv"] = {};
    build();
    EXPECT_EQ(errors, "Cannot open " + lower.at("/layer/srv") + ": Not a directory\n");
}

TEST_F(AllowlistLayer, ReportsADirectoryThatCannotBeMirrored) {
    lower.makeDirectory("/lower/srv/sites");
    lower.write("/layer/srv", "");
    allowlists["/srv/sites"] = {};
    build();
    EXPECT_EQ(errors, lower.at("/layer/srv/sites") + ": Not a directory\n");
}

TEST_F(AllowlistLayer, ReachesNothingOutsideThroughTwoDots) {
    lower.write("/lower/srv/a", "");
    lower.write("/srv/b", "");
    allowlists["/../srv"] = {};
    build();
    EXPECT_TRUE(isWhiteout("/srv/a"));
    EXPECT_FALSE(lower.has("/layer/srv/b"));
    EXPECT_EQ(lower.mode("/srv/b"), static_cast<mode_t>(S_IFREG | 0644));
}

TEST_F(AllowlistLayer, KeepsFilesThatAreAlreadyInTheLayer) {
    lower.write("/lower/srv/a", "");
    lower.write("/layer/srv/a", "kept");
    allowlists["/srv"] = {};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.read("/layer/srv/a"), "kept");
}

TEST_F(HiddenLayer, MakesWhiteoutsOfModeZero) {
    lower.makeDirectory("/lower" + host);
    hide = {host + "/secret"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/secret"), static_cast<mode_t>(S_IFCHR));
}

TEST_F(HiddenLayer, MirrorsTheParents) {
    lower.makeDirectory("/lower" + host, 0751);
    hide = {host + "/secret"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host), static_cast<mode_t>(S_IFDIR | 0751));
}

TEST_F(HiddenLayer, ReportsAParentThatTheLowerRootLacks) {
    lower.makeDirectory("/lower" + lower.path);
    hide = {host + "/secret"};
    build();
    EXPECT_EQ(errors, "recMkDir: '" + lower.at("/lower") + host + "' doesn't exist\n");
}

TEST_F(HiddenLayer, PutsTheMatchesOfAStarBelowTheLowerRootsOwnPath) {
    lower.write("/lower/srv/a", "");
    lower.makeDirectory("/lower" + lower.at("/lower/srv"));
    hide = {"/srv/*"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(isWhiteout(lower.at("/lower/srv/a")));
    EXPECT_FALSE(lower.has("/layer/srv"));
}

TEST_F(HiddenLayer, ReportsEachPathBelowALink) {
    std::filesystem::create_symlink(host, lower.at("/link"));
    lower.makeDirectory("/lower" + host);
    const std::string first = lower.at("/link/a");
    const std::string second = lower.at("/link/deep/b");
    hide = {first, host + "/c", second};
    build();
    EXPECT_EQ(errors, "Path contains symlink, ignoring: " + first + "\n" +
                          "Path contains symlink, ignoring: " + second + "\n");
    EXPECT_TRUE(isWhiteout(host + "/c"));
}

TEST_F(HiddenLayer, HidesALinkItself) {
    std::filesystem::create_symlink("nowhere", lower.at("/host/link"));
    lower.makeDirectory("/lower" + host);
    hide = {host + "/link"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(isWhiteout(host + "/link"));
}

TEST_F(HiddenLayer, SkipsTheRootItself) {
    hide = {"/", "//"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(HiddenLayer, SkipsAPathBelowAFile) {
    lower.write("/host/file", "");
    hide = {host + "/file/x/y"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(HiddenLayer, DoesNotReportAWhiteoutThatCannotBeMade) {
    lower.makeDirectory("/lower" + host);
    lower.write("/layer" + host + "/secret", "kept");
    hide = {host + "/secret"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.read("/layer" + host + "/secret"), "kept");
}

TEST_F(EmptiedLayer, MirrorsTheParents) {
    lower.makeDirectory("/lower/var/log");
    lower.makeDirectory("/lower/var", 0751);
    empty = {"/var/log"};
    build();
    expectEmptied("/var/log");
    EXPECT_EQ(lower.mode("/layer/var"), static_cast<mode_t>(S_IFDIR | 0751));
}

TEST_F(EmptiedLayer, AppliesTheUmask) {
    lower.makeDirectory("/lower/open", 01777);
    empty = {"/open"};
    build();
    EXPECT_EQ(lower.mode("/layer/open"), static_cast<mode_t>(S_IFDIR | 01755));
}

TEST_F(EmptiedLayer, RemovesTheWhiteoutOfAHiddenDirectory) {
    lower.makeDirectory("/lower" + host + "/dir", 0711);
    hide = {host + "/dir"};
    empty = {host + "/dir"};
    build();
    expectEmptied(host + "/dir");
    EXPECT_EQ(lower.mode("/layer" + host + "/dir"), static_cast<mode_t>(S_IFDIR | 0711));
}

TEST_F(EmptiedLayer, RemovesTheWhiteoutAlsoOfADirectoryWrittenWithASlashAtItsEnd) {
    lower.makeDirectory("/lower" + host + "/dir");
    hide = {host + "/dir/"};
    empty = {host + "/dir/"};
    build();
    EXPECT_TRUE(S_ISDIR(lower.mode("/layer" + host + "/dir")));
    EXPECT_EQ(errors.find("mkdir("), std::string::npos) << errors;
}

TEST_F(EmptiedLayer, TakesADirectoryWrittenWithASlashAtItsEnd) {
    lower.makeDirectory("/lower/var", 0711);
    empty = {"/var/"};
    build();
    EXPECT_EQ(lower.mode("/layer/var"), static_cast<mode_t>(S_IFDIR | 0711));
    EXPECT_EQ(isOpaque("/var"), isRoot());
}

TEST_F(EmptiedLayer, ReportsADirectoryThatCannotBeMade) {
    lower.makeDirectory("/lower/var/log");
    lower.write("/layer/var", "");
    empty = {"/var/log"};
    build();
    EXPECT_EQ(errors, "mkdir(" + lower.at("/layer/var/log") + ") failed: Not a directory\n");
}

TEST_F(EmptiedLayer, ReportsParentsThatCannotBeMirrored) {
    lower.makeDirectory("/lower/var/a/log");
    lower.write("/layer/var", "");
    empty = {"/var/a/log"};
    build();
    EXPECT_EQ(errors, lower.at("/layer/var/a") + ": Not a directory\n");
}

TEST_F(EmptiedLayer, ReportsADirectoryThatIsNamedTwice) {
    lower.makeDirectory("/lower/var");
    empty = {"/var", "/var"};
    build();
    EXPECT_EQ(errors, opaqueFailure("/var") + lower.at("/layer/var") +
                          " already exists - don't know...!?\n");
}

TEST_F(EmptiedLayer, ContinuesAfterADirectoryThatIsMissing) {
    lower.makeDirectory("/lower/var");
    empty = {"/absent", "/var"};
    build();
    EXPECT_EQ(errors, "stat(" + lower.at("/lower/absent") +
                          ") failed: No such file or directory\n" + opaqueFailure("/var"));
    EXPECT_TRUE(lower.has("/layer/var"));
}

TEST_F(EmptiedLayer, ReportsADirectoryBelowAFile) {
    lower.write("/lower/file", "");
    empty = {"/file/dir"};
    build();
    EXPECT_EQ(errors, "stat(" + lower.at("/lower/file/dir") + ") failed: Not a directory\n");
}

TEST_F(EmptiedLayer, LooksForTheMatchesOfAStarBelowTheLowerRootsOwnPath) {
    lower.makeDirectory("/lower/var/log");
    empty = {"/var/*"};
    build();
    EXPECT_EQ(errors, "stat(" + lower.at("/lower") + lower.at("/lower//var/log") +
                          ") failed: No such file or directory\n");
}

TEST_F(EmptiedLayer, LeavesToTheMountsOnlyWhatIsBelowProc) {
    lower.makeDirectory("/lower/proc");
    lower.makeDirectory("/lower/procfs");
    empty = {"/proc/", "/proc/sys/kernel", "/procfs"};
    build();
    expectEmptied("/procfs");
    EXPECT_FALSE(lower.has("/layer/proc"));
}

TEST_F(EmptiedLayer, ReachesNothingOutsideThroughTwoDots) {
    lower.makeDirectory("/lower/var");
    empty = {"/../../var"};
    build();
    expectEmptied("/var");
    EXPECT_FALSE(lower.has("/var"));
}

// The mount points that the layer prepares for bind mounts.

using BindLayer = OverlayLayer;

TEST_F(BindLayer, MirrorsTheParentsFromTheRunningSystem) {
    lower.write("/host/dir/file", "");
    lower.makeDirectory("/host/dir", 0710);
    bind = {host + "/dir/file"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer" + host + "/dir"), static_cast<mode_t>(S_IFDIR | 0710));
}

TEST_F(BindLayer, AppliesTheUmaskToFiles) {
    lower.write("/host/file", "");
    ::umask(027);
    bind = {host + "/file"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/file"), static_cast<mode_t>(S_IFREG | 0640));
    ::umask(077);
    bind = {lower.write("/host/other", "")};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/other"), static_cast<mode_t>(S_IFREG | 0600));
}

TEST_F(BindLayer, DoesNotCopyTheModeOfAFile) {
    lower.write("/host/file", "");
    std::filesystem::permissions(host + "/file", std::filesystem::perms::all);
    bind = {host + "/file"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/file"), static_cast<mode_t>(S_IFREG | 0640));
}

TEST_F(BindLayer, DoesNotCopyTheContentOfADirectory) {
    lower.write("/host/dir/file", "");
    bind = {host + "/dir"};
    build();
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer" + host + "/dir")));
}

TEST_F(BindLayer, PreparesAFileForASourceThatIsNeitherFileNorDirectory) {
    bind = {"/dev/null"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer/dev/null"), static_cast<mode_t>(S_IFREG | 0640));
}

TEST_F(BindLayer, FollowsALink) {
    lower.makeDirectory("/host/dir", 0711);
    std::filesystem::create_symlink("dir", host + "/link");
    bind = {host + "/link"};
    build();
    EXPECT_EQ(lower.mode("/layer" + host + "/link"), static_cast<mode_t>(S_IFDIR | 0711));
}

TEST_F(BindLayer, TakesADirectoryWrittenWithASlashAtItsEnd) {
    lower.makeDirectory("/host/dir");
    bind = {host + "/dir/"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(S_ISDIR(lower.mode("/layer" + host + "/dir")));
}

TEST_F(BindLayer, ReportsAFileWrittenWithASlashAtItsEnd) {
    lower.write("/host/file", "");
    bind = {host + "/file/"};
    build();
    EXPECT_EQ(errors, host + "/file/: cannot prepare bind-mount: Not a directory\n");
    EXPECT_FALSE(lower.has("/layer" + host));
}

TEST_F(BindLayer, DoesNotExpandPatterns) {
    lower.write("/host/file", "");
    bind = {host + "/f*"};
    settings().debugMode = 1;
    build();
    EXPECT_EQ(errors, host + "/f*: cannot prepare bind-mount: No such file or directory\n");
}

TEST_F(BindLayer, ReportsADirectoryWhoseParentIsAFile) {
    lower.makeDirectory("/host/dir/deep");
    lower.write("/layer" + host, "in the way");
    bind = {host + "/dir/deep"};
    build();
    EXPECT_EQ(errors, lower.at("/layer" + host + "/dir") + ": Not a directory\n" + "mkdir(" +
                          lower.at("/layer" + host + "/dir/deep") +
                          ") failed (2): Not a directory\n");
}

TEST_F(BindLayer, ReportsAFileWhoseParentsCannotBeMade) {
    lower.write("/host/dir/file", "");
    lower.write("/layer" + host, "in the way");
    bind = {host + "/dir/file"};
    build();
    EXPECT_EQ(errors, lower.at("/layer" + host + "/dir") + ": Not a directory\n" + "mkdir(" +
                          lower.at("/layer" + host + "/dir/file") +
                          ") failed (2): Not a directory\n");
}

TEST_F(BindLayer, ContinuesAfterEachPathThatFails) {
    lower.write("/host/file", "");
    lower.write("/host/good", "");
    bind = {host + "/absent", host + "/file/x", host + "/good"};
    build();
    EXPECT_EQ(errors, host + "/file/x: cannot prepare bind-mount: Not a directory\n");
    EXPECT_TRUE(lower.has("/layer" + host + "/good"));
}

TEST_F(BindLayer, LeavesAnExistingMountPointAsItIs) {
    lower.write("/host/file", "");
    lower.write("/layer" + host + "/file", "kept");
    bind = {host + "/file"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.read("/layer" + host + "/file"), "kept");
}

TEST_F(BindLayer, SkipsAnEmptyPath) {
    bind = {""};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(BindLayer, NeedsNoMountPointForTheRootItself) {
    bind = {"/"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(BindLayer, ReachesNothingOutsideThroughTwoDots) {
    lower.write("/host/file", "");
    bind = {"/.." + host + "/../host/file"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_EQ(lower.mode("/layer" + host + "/file"), static_cast<mode_t>(S_IFREG | 0640));
}

}  // namespace
