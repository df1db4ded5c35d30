#include "fs/path_expansion.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "../util/captured.h"
#include "../util/child_process.h"
#include "narrowed_process.h"
#include "temporary_directory.h"

namespace {

using List = std::list<std::string>;

class PathExpansion : public testing::Test {
protected:
    PathExpansion() {
        for (const char* path : {"/home/b/tmp", "/home/a/tmp", "/home/.hidden/tmp", "/home/c"}) {
            directory.makeDirectory(path);
        }
    }

    TemporaryDirectory directory;
};

TEST_F(PathExpansion, ReturnsAPlainPathAsWritten) {
    EXPECT_EQ(expandPaths(directory.path, {"/etc/shadow", "relative", ""}),
              (List{"/etc/shadow", "relative", ""}));
}

TEST_F(PathExpansion, TakesOtherGlobCharactersLiterally) {
    EXPECT_EQ(expandPaths(directory.path, {"home/?/tmp", "home/[ab]"}),
              (List{"home/?/tmp", "home/[ab]"}));
}

TEST_F(PathExpansion, ExpandsAStarBelowTheBaseInSortedOrder) {
    EXPECT_EQ(expandPaths(directory.path, {"home/*/tmp"}),
              (List{directory.at("/home/a/tmp"), directory.at("/home/b/tmp")}));
}

TEST_F(PathExpansion, ExpandsOtherGlobCharactersBesideAStar) {
    EXPECT_EQ(expandPaths(directory.path, {"home/[a]/*"}), (List{directory.at("/home/a/tmp")}));
}

TEST_F(PathExpansion, WithoutABaseExpandsThePatternItself) {
    EXPECT_EQ(expandPaths("", {directory.at("/home/*/tmp")}),
              (List{directory.at("/home/a/tmp"), directory.at("/home/b/tmp")}));
}

TEST_F(PathExpansion, OfAStarThatMatchesNothingIsSilentAndEmpty) {
    Captured standardError(STDERR_FILENO);
    EXPECT_EQ(expandPaths(directory.path, {"absent/*", "a", "absent*"}), List{"a"});
    EXPECT_EQ(standardError.text(), "");
}

TEST_F(PathExpansion, KeepsTheOrderOfPatterns) {
    EXPECT_EQ(expandPaths(directory.path, {"z", "home/c*", "a"}),
              (List{"z", directory.at("/home/c"), "a"}));
}

// Unusual patterns: how they are joined to their base, and what a "*" does not match.

class PathPatterns : public testing::Test {
protected:
    List expand(const List& patterns) {
        Captured standardError(STDERR_FILENO);
        const List paths = expandPaths(directory.path, patterns);
        EXPECT_EQ(standardError.text(), "");
        return paths;
    }

    TemporaryDirectory directory;
};

TEST_F(PathPatterns, OfNoneYieldNothing) {
    EXPECT_EQ(expand({}), List{});
}

TEST_F(PathPatterns, KeepTheSlashOfAnAbsolutePatternAfterTheBase) {
    directory.write("/srv/a", "");
    EXPECT_EQ(expand({"/srv/*"}), List{directory.at("//srv/a")});
}

TEST_F(PathPatterns, WithABaseDoNotLookAtTheRunningSystem) {
    EXPECT_EQ(expand({"/etc/pass*"}), List{});
}

TEST_F(PathPatterns, ReturnAPlainPathWithoutLookingForIt) {
    EXPECT_EQ(expand({"/no/such/path", "a b", "\\"}), (List{"/no/such/path", "a b", "\\"}));
}

TEST_F(PathPatterns, MatchHiddenNamesOnlyByADot) {
    directory.write("/srv/.hidden", "");
    directory.write("/srv/shown", "");
    EXPECT_EQ(expand({"srv/*"}), List{directory.at("/srv/shown")});
    EXPECT_EQ(expand({"srv/.h*"}), List{directory.at("/srv/.hidden")});
}

TEST_F(PathPatterns, DoNotMatchAcrossASlash) {
    directory.write("/srv/deep/file", "");
    EXPECT_EQ(expand({"srv*file"}), List{});
}

TEST_F(PathPatterns, KeepASlashAtTheEndAndThenMatchOnlyDirectories) {
    directory.makeDirectory("/srv/dir");
    directory.write("/srv/file", "");
    EXPECT_EQ(expand({"srv/*/"}), List{directory.at("/srv/dir/")});
}

TEST_F(PathPatterns, MatchADanglingLink) {
    directory.makeDirectory("/srv");
    std::filesystem::create_symlink("nowhere", directory.at("/srv/link"));
    EXPECT_EQ(expand({"srv/*"}), List{directory.at("/srv/link")});
}

TEST_F(PathPatterns, TakeAnEscapedStarForTheCharacter) {
    directory.write("/a*", "");
    directory.write("/ab", "");
    EXPECT_EQ(expand({"a\\*"}), List{directory.at("/a*")});
}

TEST_F(PathPatterns, DoNotExpandBracesAndTildes) {
    directory.write("/a1", "");
    directory.write("/b1", "");
    EXPECT_EQ(expand({"{a,b}*", "~*"}), List{});
}

TEST_F(PathPatterns, MatchNamesThatAreNotText) {
    directory.write("/srv/\xff\n", "");
    EXPECT_EQ(expand({"srv/*"}), List{directory.at("/srv/\xff\n")});
}

TEST_F(PathPatterns, YieldAPathForEachPatternThatMatchesIt) {
    directory.write("/srv/a", "");
    EXPECT_EQ(expand({"srv/*", "srv/a*"}), (List{directory.at("/srv/a"), directory.at("/srv/a")}));
}

TEST_F(PathPatterns, SkipADirectoryThatMayNotBeRead) {
    directory.write("/srv/closed/file", "");
    directory.write("/srv/open/file", "");
    giveToNobody(directory.path);
    directory.makeDirectory("/srv/closed", 0000);
    const auto result = inChild([this] {
        dropPrivileges();
        const auto paths = expandPaths(directory.path, {"srv/*/*", "plain"});
        return paths == List{directory.at("/srv/open/file"), "plain"} ? 0 : 1;
    });
    directory.makeDirectory("/srv/closed", 0700);
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, "");
}

TEST_F(PathPatterns, MatchHundredsOfHomes) {
    List wanted;
    for (int i = 1'000; i < 1'300; ++i) {
        const std::string name = "/home/user" + std::to_string(i);
        directory.write(name, "");
        wanted.push_back(directory.at(name));
    }
    EXPECT_EQ(expand({"home/user*"}), wanted);
}

TEST_F(PathPatterns, LongerThanAPathAreReportedAndLeftOut) {
    directory.write("/a", "");
    std::string pattern;
    for (int i = 0; i < 100'000; ++i) {
        pattern += "*/";
    }
    Captured standardError(STDERR_FILENO);
    EXPECT_EQ(expandPaths(directory.path, {pattern, "*"}), List{directory.at("/a")});
    EXPECT_EQ(standardError.text(),
              "glob(" + directory.path + "/" + pattern + ") failed: File name too long\n");
}

}  // namespace
