#include <gtest/gtest.h>
#include <sys/stat.h>

#include <list>
#include <string>

#include "fs/directory_mirror.h"
#include "temporary_directory.h"

namespace {

class MirrorOfATree : public testing::Test {
protected:
    MirrorOfATree() : tree(directory.at("/src"), directory.at("/dst")) {
        directory.makeDirectory("/src");
        directory.makeDirectory("/dst");
    }

    bool mirror(const std::list<std::string>& components) {
        testing::internal::CaptureStderr();
        const bool done = tree.mirror(components);
        errors = testing::internal::GetCapturedStderr();
        return done;
    }

    TemporaryDirectory directory;
    TreeMirror tree;
    std::string errors;
};

TEST_F(MirrorOfATree, MakesWhatChainsHaveInCommonAndWhatIsTheirOwn) {
    directory.makeDirectory("/src/usr/share/man", 0750);
    directory.makeDirectory("/src/usr/share/doc", 0700);
    EXPECT_TRUE(mirror({"usr", "share", "man"}));
    EXPECT_TRUE(mirror({"usr", "share", "doc"}));
    EXPECT_EQ(directory.mode("/dst/usr/share/man") & 07777, 0750U);
    EXPECT_EQ(directory.mode("/dst/usr/share/doc") & 07777, 0700U);
}

TEST_F(MirrorOfATree, TakesAChainThatIsThereAlready) {
    directory.makeDirectory("/src/usr/share");
    EXPECT_TRUE(mirror({"usr", "share"}));
    EXPECT_TRUE(mirror({"usr"}));
    EXPECT_TRUE(mirror({}));
    EXPECT_TRUE(mirror({"usr", "share"}));
    EXPECT_EQ(errors, "");
}

TEST_F(MirrorOfATree, DoesNotLookAgainAtWhatItHasMirrored) {
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

}  // namespace
