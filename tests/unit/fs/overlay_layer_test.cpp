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

TEST_F(OverlayLayer, HidesWhatAnAllowlistDoesNotName) {
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

TEST_F(OverlayLayer, PassesAnAllowlistOfAMissingDirectoryOver) {
    allowlists["/absent"] = {"ssh"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_FALSE(lower.has("/layer/absent"));
}

TEST_F(OverlayLayer, ReportsAnAllowlistOfWhatIsNoDirectory) {
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

TEST_F(OverlayLayer, PassesAHiddenPathWithoutAParentOver) {
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

TEST_F(OverlayLayer, ReportsAnEmptiedDirectoryThatStandsInTheLayerAlready) {
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

TEST_F(OverlayLayer, PassesAMissingBindPathOverUnlessInDebugMode) {
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

TEST_F(OverlayLayer, ReportsABindFileWhosePlaceIsTaken) {
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

TEST_F(OverlayLayer, ReplacesWhatStandsInAFilteredFilesPlace) {
    lower.write("/host/passwd", "alice:1\n");
    bind = {host + "/passwd"};
    filters[host + "/passwd"] = "alice";
    build();
    EXPECT_EQ(filteredCopy(), "alice:1\n");
}

TEST_F(OverlayLayer, ReportsAFilteredFileWhosePlaceIsTaken) {
    lower.write("/host/passwd", "alice:1\n");
    lower.makeDirectory("/layer" + host + "/passwd");
    filters[host + "/passwd"] = "alice";
    build();
    EXPECT_EQ(errors,
              lower.at("/layer" + host + "/passwd") + ": error while opening: Is a directory\n");
}

TEST_F(OverlayLayer, ReportsAFilteredFileWithoutAPlace) {
    lower.write("/host/passwd", "alice:1\n");
    lower.write("/layer" + host, "a file in the way");
    filters[host + "/passwd"] = "alice";
    build();
    EXPECT_EQ(errors, lower.at("/layer" + host + "/passwd") +
                          ": error while opening: " + "Not a directory\n");
}

TEST_F(OverlayLayer, TellsInDebugModeWhatItCreates) {
    lower.write("/host/passwd", "alice:1\n");
    filters[host + "/passwd"] = "alice";
    settings().debugMode = 1;
    build();
    EXPECT_EQ(output, "Creating file: " + lower.at("/layer" + host + "/passwd") + "\n");
}

}  // namespace
