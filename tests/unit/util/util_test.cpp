#include "util/util.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(UtilGetpwnam, CopiesTheEntry) {
    const PasswordEntry root = Util::getpwnam("root");
    const PasswordEntry daemon = Util::getpwnam("daemon");
    EXPECT_EQ(root.name, "root");
    EXPECT_EQ(root.uid, 0U);
    EXPECT_EQ(root.gid, 0U);
    EXPECT_EQ(root.homeDirectory, "/root");
    EXPECT_EQ(daemon.name, "daemon");
}

class UnknownUser : public testing::TestWithParam<std::string> {};

TEST_P(UnknownUser, IsRefused) {
    try {
        Util::getpwnam(GetParam());
        FAIL() << "found";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "unknown user");
    }
}

INSTANTIATE_TEST_SUITE_P(Names, UnknownUser,
                         testing::Values("", "no-such-user", "/", "../root", "root/",
                                         std::string("root\0", 5), std::string("\0", 1)));

TEST(UtilGetpwuid, FindsTheFirstEntryWithTheId) {
    const auto entry = Util::getpwuid(0);
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(entry->name, "root");
}

TEST(UtilGetpwuid, IsEmptyWithoutAnEntry) {
    EXPECT_FALSE(Util::getpwuid(64'321).has_value());
}

}  // namespace
