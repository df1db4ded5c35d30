#include "fs/path_expansion.h"

#include <gtest/gtest.h>

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
    testing::internal::CaptureStderr();
    EXPECT_EQ(expandPaths(directory.path, {"absent/*", "a", "absent*"}), List{"a"});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(PathExpansion, KeepsTheOrderOfPatterns) {
    EXPECT_EQ(expandPaths(directory.path, {"z", "home/c*", "a"}),
              (List{"z", directory.at("/home/c"), "a"}));
}

}  // namespace
