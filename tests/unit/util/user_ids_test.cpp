// User ids from one reading of the password file. The files of a test give root another user id
// than the machine does: that id shows that the file was believed, 0 that root was looked up by
// name.
#include "util/user_ids.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "../fs/temporary_directory.h"

namespace {

constexpr uid_t kFromFile = 4242;
constexpr uid_t kByName = 0;
constexpr const char* kRootLine = "root:x:4242:4242:::\n";

class UserIdsTest : public testing::Test {
protected:
    UserIds read(const std::string& lines, std::vector<std::string_view> names = {"root"},
                 const std::string& services = "passwd: files systemd\n") {
        passwords = directory.write("/passwd", lines);
        sources = directory.write("/nsswitch.conf", services);
        return UserIds(std::move(names), passwords.c_str(), sources.c_str());
    }

    TemporaryDirectory directory;
    std::string passwords;
    std::string sources;
};

TEST_F(UserIdsTest, AreThoseOfTheFile) {
    const UserIds ids = read("a:x:1:9:::\nroot:x:4242:9:::\nb:x:2:9:::\n", {"b", "root", "a"});
    EXPECT_EQ(ids.of("a"), 1U);
    EXPECT_EQ(ids.of("b"), 2U);
    EXPECT_EQ(ids.of("root"), kFromFile);
}

TEST_F(UserIdsTest, WithoutAFileAreLookedUpByName) {
    EXPECT_EQ(UserIds().of("root"), kByName);
}

TEST_F(UserIdsTest, OfSeveralLinesAreThoseOfTheFirst) {
    EXPECT_EQ(read("root:x:4242:0:::\nroot:x:7:0:::\n").of("root"), kFromFile);
}

TEST_F(UserIdsTest, OfANameThatWasGivenTwiceAreFound) {
    EXPECT_EQ(read(kRootLine, {"root", "a", "root"}).of("root"), kFromFile);
}

TEST_F(UserIdsTest, OfUsersThatTheFileLacksAreLookedUpByName) {
    EXPECT_EQ(read("a:x:1:1:::\n", {"a", "root"}).of("root"), kByName);
}

TEST_F(UserIdsTest, OfUsersThatWereNotAnnouncedAreLookedUpByName) {
    EXPECT_EQ(read(kRootLine, {"a"}).of("root"), kByName);
}

TEST_F(UserIdsTest, OfNobodyAreRefusedAsByName) {
    const UserIds ids = read(kRootLine, {"root", "no-such-user", ""});
    for (const char* name : {"no-such-user", ""}) {
        try {
            ids.of(name);
            ADD_FAILURE() << "found: " << name;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "unknown user");
        }
    }
}

TEST_F(UserIdsTest, SkipBrokenLinesAndComments) {
    EXPECT_EQ(read("\n# root:x:1:1:::\nroot\nroot:x\nroot:x:one:1:::\nroot:x::1:::\n  " +
                   std::string(kRootLine))
                  .of("root"),
              kFromFile);
}

TEST_F(UserIdsTest, FindTheUserBehindAVeryLongLine) {
    const std::string line = "long:x:1:1:" + std::string(100'000, 'g') + "::\n";
    EXPECT_EQ(read(line + kRootLine).of("root"), kFromFile);
}

TEST_F(UserIdsTest, OfALastLineWithoutNewlineAreFound) {
    EXPECT_EQ(read("root:x:4242:1:::").of("root"), kFromFile);
}

TEST_F(UserIdsTest, OfNamesThatAreNeverLookedUpAreRefused) {
    const UserIds ids = read("+root:x:1:1:::\n-root:x:1:1:::\na/b:x:1:1:::\n:x:1:1:::\n",
                             {"+root", "-root", "a/b", ""});
    for (const char* name : {"+root", "-root", "a/b", ""}) {
        EXPECT_THROW(ids.of(name), std::runtime_error) << name;
    }
}

TEST_F(UserIdsTest, AreLookedUpByNameWhereAnotherSourceMayAnswer) {
    for (const char* services :
         {"passwd: sss files\n", "passwd: compat\n", "passwd: db files\n", "passwd:\n",
          "passwd: files [SUCCESS=continue] sss\n", "passwd: files[SUCCESS=continue] sss\n",
          "passwd: files [!UNAVAIL=return] sss\n", "passwd: FILES\n", "passwd: files2\n",
          "passwd: files\npasswd: sss files\n", "passwd: sss\npasswd: files\n", "passwd files\n",
          "passwd :files\n", "group: files\n", "#passwd: files\n", "Passwd: files\n", ""}) {
        EXPECT_EQ(read(kRootLine, {"root"}, services).of("root"), kByName) << services;
    }
}

TEST_F(UserIdsTest, AreThoseOfTheFileWhereItAnswersFirst) {
    for (const char* services :
         {"passwd: files\n", "passwd:files", "  passwd:\tfiles\tsss\n", "passwd: files # sss\n",
          "passwd: files sss [NOTFOUND=return] ldap\n",
          "group: sss\npasswd: files\nshadow: sss\n"}) {
        EXPECT_EQ(read(kRootLine, {"root"}, services).of("root"), kFromFile) << services;
    }
}

TEST_F(UserIdsTest, AreLookedUpByNameWithoutTheFiles) {
    read(kRootLine);
    EXPECT_EQ(UserIds({"root"}, passwords.c_str(), directory.at("/none").c_str()).of("root"),
              kByName);
    EXPECT_EQ(UserIds({"root"}, directory.at("/none").c_str(), sources.c_str()).of("root"),
              kByName);
}

TEST_F(UserIdsTest, AreLookedUpByNameOnceThePasswordFileHasChanged) {
    const UserIds ids = read(kRootLine);
    directory.write("/passwd", "root:x:5:5:::\nmore:x:6:6:::\n");
    EXPECT_EQ(ids.of("root"), kByName);
}

TEST_F(UserIdsTest, AreLookedUpByNameOnceThePasswordFileHasBeenReplaced) {
    const UserIds ids = read(kRootLine);
    ASSERT_EQ(std::rename(directory.write("/new", kRootLine).c_str(), passwords.c_str()), 0);
    EXPECT_EQ(ids.of("root"), kByName);
}

TEST_F(UserIdsTest, AreLookedUpByNameOnceThePasswordFileIsGone) {
    const UserIds ids = read(kRootLine);
    ASSERT_EQ(std::remove(passwords.c_str()), 0);
    EXPECT_EQ(ids.of("root"), kByName);
}

TEST_F(UserIdsTest, AreLookedUpByNameOnceTheSourcesHaveChanged) {
    const UserIds ids = read(kRootLine);
    directory.write("/nsswitch.conf", "passwd: sss files\n");
    EXPECT_EQ(ids.of("root"), kByName);
}

}  // namespace
