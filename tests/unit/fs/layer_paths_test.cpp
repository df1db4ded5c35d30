#include "fs/layer_paths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <string>
#include <vector>

namespace {

TEST(LayerPaths, ParentLeavesTheLastComponentOut) {
    EXPECT_EQ(parentOf("/etc/ssh/key"), "/etc/ssh");
    EXPECT_EQ(parentOf("/etc"), "/");
    EXPECT_EQ(parentOf("/etc/ssh/"), "/etc");
    EXPECT_EQ(parentOf("/"), "/");
    EXPECT_EQ(parentOf("name"), "");
    EXPECT_EQ(parentOf(""), "");
}

TEST(LayerPaths, AnchoredLeavesPlainItemsAsTheyAre) {
    for (const std::string item : {"", "/", "/etc/ssh", "/etc//ssh/", "/a..b/..c"}) {
        EXPECT_EQ(anchored(item), item);
    }
}

TEST(LayerPaths, AnchoredLeadsNowhereOutside) {
    EXPECT_EQ(anchored("/../x"), "/x");
    EXPECT_EQ(anchored("/a/../../../x/y"), "/x/y");
    EXPECT_EQ(anchored("/a/.."), "");
    EXPECT_EQ(anchored("../x"), "/x");
    EXPECT_EQ(anchored("x"), "/x");
}

// Configured items as paths that stay below the directory they are appended to.

using List = std::list<std::string>;

/// Every text of up to `length` of these names, each with a "/" before it.
std::vector<std::string> chains(int length) {
    std::vector<std::string> texts = {""};
    for (std::size_t begin = 0; length > 0; --length) {
        const std::size_t end = texts.size();
        for (; begin < end; ++begin) {
            for (const char* name : {"a", "b", "..", ".", "", "...", "..c"}) {
                texts.push_back(texts[begin] + "/" + name);
            }
        }
    }
    return texts;
}

bool climbs(const std::string& path) {
    const auto components = componentsOf(path);
    return std::find(components.begin(), components.end(), "..") != components.end();
}

TEST(AnchoredItem, NeverClimbs) {
    for (const std::string& item : chains(5)) {
        EXPECT_FALSE(climbs(anchored(item))) << item;
        EXPECT_FALSE(climbs(anchored("x" + item))) << item;
    }
}

TEST(AnchoredItem, NeverExtendsTheNameOfTheDirectoryBeforeIt) {
    for (const std::string& item : chains(4)) {
        for (const std::string& text : {item, "x" + item, item.substr(item.empty() ? 0 : 1)}) {
            const std::string path = anchored(text);
            EXPECT_TRUE(path.empty() || path.front() == '/') << text;
        }
    }
}

TEST(AnchoredItem, StaysTheSameTheSecondTime) {
    for (const std::string& item : chains(4)) {
        const std::string once = anchored(item);
        EXPECT_EQ(anchored(once), once) << item;
    }
}

TEST(AnchoredItem, GoesUpFromTheDirectoryBefore) {
    EXPECT_EQ(anchored("/a/../b"), "/b");
    EXPECT_EQ(anchored("/a/b/../../c/d/.."), "/c");
    EXPECT_EQ(anchored("a/../b"), "/b");
}

TEST(AnchoredItem, GoesUpPastSuperfluousSlashes) {
    EXPECT_EQ(anchored("/a//../b"), "/b");
    EXPECT_EQ(anchored("//a/b//..//../c"), "/c");
}

TEST(AnchoredItem, GoesUpPastASingleDot) {
    EXPECT_EQ(anchored("/a/./../b"), "/b");
}

TEST(AnchoredItem, TakesNamesThatOnlyBeginWithDotsLiterally) {
    EXPECT_EQ(anchored("/.../..a/a.."), "/.../..a/a..");
}

TEST(PathWithoutSlashesAtItsEnd, KeepsTheOthers) {
    EXPECT_EQ(withoutSlashesAtEnd("//etc//ssh//"), "//etc//ssh");
    EXPECT_EQ(withoutSlashesAtEnd("/etc"), "/etc");
}

TEST(PathWithoutSlashesAtItsEnd, IsEmptyForTheRoot) {
    EXPECT_EQ(withoutSlashesAtEnd("/"), "");
    EXPECT_EQ(withoutSlashesAtEnd("///"), "");
    EXPECT_EQ(withoutSlashesAtEnd(""), "");
}

TEST(Components, AreTheNamesBetweenSlashes) {
    EXPECT_EQ(componentsOf("//etc///ssh/"), (List{"etc", "ssh"}));
    EXPECT_EQ(componentsOf("etc/ssh"), (List{"etc", "ssh"}));
    EXPECT_EQ(componentsOf("/a b/.\t"), (List{"a b", ".\t"}));
}

TEST(Components, OfTheRootAreNone) {
    EXPECT_EQ(componentsOf("/"), List{});
    EXPECT_EQ(componentsOf("///"), List{});
    EXPECT_EQ(componentsOf(""), List{});
}

TEST(Parent, LeavesSlashesAtTheEndOutOfAccount) {
    EXPECT_EQ(parentOf("/etc/ssh///"), "/etc");
    EXPECT_EQ(parentOf("/etc///"), "/");
}

TEST(Parent, OfARelativePathIsRelative) {
    EXPECT_EQ(parentOf("etc/ssh"), "etc");
    EXPECT_EQ(parentOf("etc/"), "");
}

TEST(Parent, OfSlashesAloneIsTheRoot) {
    EXPECT_EQ(parentOf("//"), "/");
    EXPECT_EQ(parentOf("//x"), "/");
}

TEST(Parent, HasTheComponentsOfThePathWithoutTheLast) {
    for (const std::string& path : chains(4)) {
        auto components = componentsOf(path);
        if (!components.empty()) {
            components.pop_back();
        }
        EXPECT_EQ(componentsOf(parentOf(path)), components) << path;
    }
}

TEST(BelowProc, IsDecidedByTheFirstCharacters) {
    EXPECT_TRUE(isBelowProc("/proc/irq"));
    EXPECT_TRUE(isBelowProc("/proc/"));
    for (const char* item : {"", "/proc", "//proc/irq", "/process/x", "proc/irq"}) {
        EXPECT_FALSE(isBelowProc(item)) << item;
    }
}

}  // namespace
