#include "util/util.h"

#include <gtest/gtest.h>
#include <nss.h>
#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <iostream>
#include <stdexcept>

#include "child_process.h"

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
                         testing::Values("", "no-such-user", ".", "..", "/", "../root", "root/",
                                         std::string("root\0", 5), std::string("\0", 1)));

TEST(UtilGetpwuid, FindsTheFirstEntryWithTheId) {
    const auto entry = Util::getpwuid(0);
    ASSERT_TRUE(entry.has_value());
    EXPECT_EQ(entry->name, "root");
}

TEST(UtilGetpwuid, IsEmptyWithoutAnEntry) {
    EXPECT_FALSE(Util::getpwuid(64'321).has_value());
}

std::string refusal(const std::string& name) {
    try {
        Util::getpwnam(name);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "found";
}

TEST(UtilGetpwnam, IsIndependentOfLaterLookUps) {
    const PasswordEntry root = Util::getpwnam("root");
    const passwd* other = ::getpwnam("daemon");
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(root.name, "root");
    EXPECT_EQ(root.homeDirectory, "/root");
}

TEST(UtilGetpwnam, ReturnsTheEntryOfTheDatabase) {
    const PasswordEntry entry = Util::getpwnam("daemon");
    const passwd* expected = ::getpwnam("daemon");
    ASSERT_NE(expected, nullptr);
    EXPECT_EQ(entry.uid, expected->pw_uid);
    EXPECT_EQ(entry.gid, expected->pw_gid);
    EXPECT_EQ(entry.homeDirectory, expected->pw_dir);
    EXPECT_EQ(entry.shell, expected->pw_shell);
    EXPECT_NE(entry.shell, "");
}

TEST(UtilGetpwnam, DoesNotCutANameAtANulByte) {
    EXPECT_EQ(refusal(std::string("root\0x", 6)), "unknown user");
}

TEST(UtilGetpwnam, DoesNotFindAUserByNumber) {
    EXPECT_EQ(refusal("0"), "unknown user");
}

TEST(UtilGetpwnam, FindsOnlyAWholeName) {
    for (const std::string name : {"roo", "root ", " root", "Root", "root:x", "root\n", "."}) {
        EXPECT_EQ(refusal(name), "unknown user") << name;
    }
}

TEST(UtilGetpwnam, DoesNotFindAHugeName) {
    EXPECT_EQ(refusal(std::string(100'000, 'a')), "unknown user");
}

TEST(UtilGetpwnam, DistinguishesAnUnreadableDatabaseFromAnUnknownUser) {
    const auto result = inChild([] {
        // services other than the file may answer, despite the limit
        ::__nss_configure_lookup("passwd", "files");
        const rlimit none = {0, 0};
        ::setrlimit(RLIMIT_NOFILE, &none);
        std::cerr << refusal("no-such-user");
        return 0;
    });
    EXPECT_EQ(result.errorOutput, "cannot look up user: Too many open files");
}

}  // namespace
