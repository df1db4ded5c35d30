#include "companions/check/misspelling.h"

#include <gtest/gtest.h>

#include "../../fs/temporary_directory.h"

namespace {

bool knowsNothing(const std::string&) {
    return false;
}

TEST(LooksLike, OneLetterThatIsMissingAddedOrReplaced) {
    EXPECT_TRUE(looksLike("shdow", "shadow"));
    EXPECT_TRUE(looksLike("hostss", "hosts"));
    EXPECT_TRUE(looksLike("possgresql", "postgresql"));
    EXPECT_TRUE(looksLike("hme", "home"));
}

TEST(LooksLike, SwappedLettersAndOtherCapitals) {
    EXPECT_TRUE(looksLike("ect", "etc"));
    EXPECT_TRUE(looksLike("letsencyrpt", "letsencrypt"));
    EXPECT_TRUE(looksLike("Hosts", "hosts"));
}

TEST(LooksLike, NeitherBackupsNorVersionsNorRelatives) {
    EXPECT_FALSE(looksLike("passwd-", "passwd"));
    EXPECT_FALSE(looksLike("passwd", "passwd-"));
    EXPECT_FALSE(looksLike("fusermount", "fusermount3"));
    EXPECT_FALSE(looksLike("php8", "php7"));
    EXPECT_FALSE(looksLike("plocate", "locate"));
    EXPECT_FALSE(looksLike("plocate", "mlocate"));
    EXPECT_FALSE(looksLike("boot", "root"));
}

TEST(LooksLike, NeitherShortNamesNorOtherOnes) {
    EXPECT_FALSE(looksLike("at", "as"));
    EXPECT_FALSE(looksLike("su", "sum"));
    EXPECT_FALSE(looksLike("chfn", "chsh"));
    EXPECT_FALSE(looksLike("same", "same"));
    EXPECT_FALSE(looksLike("", ""));
}

TEST(FindMissing, NamesTheFirstComponentThatIsNotThere) {
    const TemporaryDirectory directory;
    directory.makeDirectory("/there/below");
    const auto missing = findMissing(directory.at("/theer/below"), knowsNothing);
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->path, directory.at("/theer"));
    EXPECT_EQ(missing->meant, directory.at("/there"));
    EXPECT_FALSE(findMissing(directory.at("/there/below"), knowsNothing));
}

TEST(FindMissing, DoesNotProposeWhatIsKnown) {
    const TemporaryDirectory directory;
    directory.write("/newgidmap", "");
    const auto missing = findMissing(directory.at("/newuidmap"), [](const std::string& path) {
        return path.ends_with("/newgidmap");
    });
    ASSERT_TRUE(missing);
    EXPECT_FALSE(missing->meant);
}

}  // namespace
