// The marks are set on a directory in /tmp. They are extended attributes that only root may set.
#include "util/interrupted_run.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>

#include "../fs/temporary_directory.h"

namespace {

constexpr int kAllKinds = CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWNS;

TEST(InterruptedRun, IsParsedFromItsText) {
    for (const InterruptedRun run :
         {InterruptedRun{}, InterruptedRun{CLONE_NEWNET},
          InterruptedRun{CLONE_NEWIPC | CLONE_NEWNS, true}, InterruptedRun{kAllKinds, true}}) {
        EXPECT_EQ(parseInterruptedRun(textOf(run)), run) << textOf(run);
    }
}

TEST(InterruptedRun, HasTheSameTextAsInEarlierVersions) {
    EXPECT_EQ(textOf({kAllKinds, true}), "net ipc mnt pinned");
    EXPECT_EQ(textOf({CLONE_NEWNET}), "net ");
}

TEST(InterruptedRun, IgnoresUnknownWords) {
    EXPECT_EQ(parseInterruptedRun(""), InterruptedRun{});
    EXPECT_EQ(parseInterruptedRun("network mntx PINNED cgroup"), InterruptedRun{});
    EXPECT_EQ(parseInterruptedRun("cgroup mnt"), InterruptedRun{CLONE_NEWNS});
}

TEST(SetUpChild, ClearsOnlyAMarkThatSaysPinned) {
    EXPECT_TRUE(mayClear(InterruptedRun{kAllKinds, true}));
    EXPECT_FALSE(mayClear(InterruptedRun{kAllKinds}));
    EXPECT_FALSE(mayClear(std::nullopt));
}

TEST(AfterStop, NothingIsMarkedWhenNothingWasInterruptedAndNoRuleIsLeft) {
    EXPECT_EQ(afterStop(std::nullopt, 0, false), std::nullopt);
}

TEST(AfterStop, ABusyKindThatWasNotInterruptedIsNotMarked) {
    EXPECT_EQ(afterStop(std::nullopt, kAllKinds, false), std::nullopt);
    EXPECT_EQ(afterStop(InterruptedRun{CLONE_NEWNS, true}, CLONE_NEWNET, false), std::nullopt);
}

TEST(AfterStop, AnInterruptedKindThatIsStillPinnedStaysMarked) {
    for (const int kind : {CLONE_NEWNET, CLONE_NEWIPC, CLONE_NEWNS}) {
        EXPECT_EQ(afterStop(InterruptedRun{kAllKinds, true}, kind, false), InterruptedRun{kind});
    }
    EXPECT_EQ(afterStop(InterruptedRun{kAllKinds}, 0, false), std::nullopt);
}

TEST(AfterStop, RulesThatMayBeLeftKeepTheNetworkMarked) {
    EXPECT_EQ(afterStop(std::nullopt, 0, true), InterruptedRun{CLONE_NEWNET});
    EXPECT_EQ(afterStop(InterruptedRun{CLONE_NEWNS}, CLONE_NEWNS, true),
              InterruptedRun{CLONE_NEWNS | CLONE_NEWNET});
}

class Mark : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root may set such an attribute";
        }
    }

    RunMark of(const std::string& userName) const { return RunMark(userName, directory.path); }

    TemporaryDirectory directory;
};

TEST_F(Mark, IsAbsentAtFirst) {
    EXPECT_EQ(of("alice").read(), std::nullopt);
}

TEST_F(Mark, IsReadAsItWasWritten) {
    EXPECT_TRUE(of("alice").write({CLONE_NEWNET | CLONE_NEWNS, true}));
    EXPECT_EQ(of("alice").read(), (InterruptedRun{CLONE_NEWNET | CLONE_NEWNS, true}));
    EXPECT_TRUE(of("alice").write({}));
    EXPECT_EQ(of("alice").read(), InterruptedRun{});
}

TEST_F(Mark, IsEachAccountsOwn) {
    EXPECT_TRUE(of("alice").write({CLONE_NEWNET}));
    EXPECT_EQ(of("bob").read(), std::nullopt);
    EXPECT_EQ(of("alic").read(), std::nullopt);
}

TEST_F(Mark, OfALeftPairIsNotTheAccountsMark) {
    EXPECT_TRUE(RunMark::ofLeftPair("alice", directory.path).write({}));
    EXPECT_TRUE(RunMark::ofHost(directory.path).write({}));
    EXPECT_EQ(of("alice").read(), std::nullopt);
    EXPECT_EQ(RunMark::ofLeftPair("bob", directory.path).read(), std::nullopt);
}

TEST_F(Mark, MayBeClearedTwice) {
    EXPECT_TRUE(of("alice").write({CLONE_NEWNET}));
    of("alice").clear();
    of("alice").clear();
    EXPECT_EQ(of("alice").read(), std::nullopt);
}

TEST_F(Mark, IsAnAttributeOfTheDirectoryAndNotAFile) {
    EXPECT_TRUE(of("alice").write({CLONE_NEWNET}));
    EXPECT_TRUE(std::filesystem::is_empty(directory.path));
    EXPECT_EQ(::getxattr(directory.path.c_str(), "trusted.kiv.unfinished.alice", nullptr, 0), 4);
}

TEST_F(Mark, IsReachedWhenThePathNoLongerLeadsToIt) {
    const RunMark mark = of("alice");
    EXPECT_TRUE(mark.write({CLONE_NEWNET}));
    const std::string moved = directory.path + "-moved";
    std::filesystem::rename(directory.path, moved);
    mark.clear();
    std::filesystem::rename(moved, directory.path);
    EXPECT_EQ(of("alice").read(), std::nullopt);
}

TEST_F(Mark, IsAbsentWithoutADirectory) {
    const RunMark mark("alice", directory.at("/absent"));
    EXPECT_EQ(mark.read(), std::nullopt);
    EXPECT_FALSE(mark.write({CLONE_NEWNET}));
    directory.write("/file", "");
    EXPECT_EQ(RunMark("alice", directory.at("/file")).read(), std::nullopt);
}

}  // namespace
