// Allow-lists, hidden paths and emptied directories beyond the plain cases.
#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>

#include "layer_fixture.h"

namespace {

class LayerHiding : public OverlayLayer {
protected:
    bool isOpaque(const std::string& name) {
        char value[2] = "";
        return ::getxattr(lower.at("/layer" + name).c_str(), "trusted.overlay.opaque", value,
                          sizeof value) == 1 &&
               value[0] == 'y';
    }

    /// What is reported of a directory that only lacks root's attribute.
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

TEST_F(AllowlistLayer, GoesOnAfterADirectoryThatCannotBeOpened) {
    lower.write("/lower/a", "");
    lower.write("/lower/srv/b", "");
    allowlists["/a"] = {};
    allowlists["/srv"] = {};
    build();
    EXPECT_EQ(errors, "Cannot open " + lower.at("/lower/a") + ": Not a directory\n");
    EXPECT_TRUE(isWhiteout("/srv/b"));
}

TEST_F(AllowlistLayer, ReportsADirectoryInWhosePlaceAFileStands) {
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

TEST_F(AllowlistLayer, LeavesWhatStandsInTheLayerAlready) {
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

TEST_F(HiddenLayer, PassesTheRootItselfOver) {
    hide = {"/", "//"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(HiddenLayer, PassesAPathBelowAFileOver) {
    lower.write("/host/file", "");
    hide = {host + "/file/x/y"};
    build();
    EXPECT_EQ(errors, "");
    EXPECT_TRUE(std::filesystem::is_empty(lower.at("/layer")));
}

TEST_F(HiddenLayer, SaysNothingOfAWhiteoutThatCannotBeMade) {
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

TEST_F(EmptiedLayer, GoesOnAfterADirectoryThatIsMissing) {
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

}  // namespace
