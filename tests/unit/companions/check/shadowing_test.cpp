// Which items cancel each other. tests/e2e/kiv_check.bats shows that containers behave so.
#include "companions/check/shadowing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> judged(const std::vector<PlacedItem>& items) {
    Findings findings;
    checkShadowing(items, FindingsOf(findings, "f"));
    std::vector<std::string> lines;
    for (const Finding& finding : findings) {
        lines.push_back(std::to_string(finding.line) + " " + finding.message);
    }
    return lines;
}

TEST(Shadowing, LeavesNeighboursAndOtherNamesAlone) {
    EXPECT_THAT(judged({{Step::Hide, 1, "/etc/ssl", {}},
                        {Step::Hide, 2, "/etc/ssl2", {}},
                        {Step::Empty, 3, "/home", {}},
                        {Step::Bind, 4, "/home/shared", {}},
                        {Step::Bind, 5, "/srv", {}},
                        {Step::Bind, 6, "/srv/more", {}}}),
                IsEmpty());
}

TEST(Shadowing, LooksAtEveryDirectoryAbove) {
    EXPECT_THAT(judged({{Step::Hide, 1, "/a/b/c/d", {}}, {Step::Hide, 2, "/a", {}}}),
                ElementsAre("2 '/a' is not hidden: an item below it comes first, delete that one, "
                            "see line 1"));
}

TEST(Shadowing, KnowsTheNamesThatAnAllowlistLacks) {
    EXPECT_THAT(judged({{Step::Allowlist, 1, "/dev", {"null"}},
                        {Step::Bind, 2, "/dev/null", {}},
                        {Step::Bind, 3, "/dev/full", {}}}),
                ElementsAre("3 '/dev/full' is not bound: the allowlist above it lacks it, see line "
                            "1"));
}

TEST(Shadowing, ReportsAPairOfLinesOnce) {
    EXPECT_THAT(
        judged(
            {{Step::Hide, 1, "/a/x", {}}, {Step::Hide, 1, "/a/y", {}}, {Step::Empty, 2, "/a", {}}}),
        ElementsAre("2 '/a' is not emptied: an item below it comes first, delete that one, "
                    "see line 1"));
}

}  // namespace
