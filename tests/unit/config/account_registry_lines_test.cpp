// Lines of the registry as they come from editors and panels.
#include <gtest/gtest.h>

#include <stdexcept>

#include "registry_file.h"

namespace {

using List = std::list<std::string>;

TEST_F(Registry, AddsToWhatTheListHoldsAlready) {
    const std::string path = directory.write("/kiv.users", "bob net=b\n");
    std::list<AccountEntry> entries = {{"alice", "a"}};
    readAccounts(entries, "", path.c_str());
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries.front().name, "alice");
    EXPECT_EQ(entries.back().name, "bob");
}

TEST_F(Registry, TrimsAllSixWhiteSpaceCharacters) {
    EXPECT_EQ(read("\v\f\r\t alice net=a \t\r\f\v\n"), List{"alice=a"});
    EXPECT_EQ(errors, "");
}

TEST_F(Registry, SeparatesWordsByNothingElse) {
    EXPECT_EQ(read("alice\vnet=a\n"), List{"alice\vnet=a="});
    EXPECT_EQ(read("alice net=a\rx\n"), List{"alice=a\rx"});
}

TEST_F(Registry, SkipsLinesOfWhiteSpaceAlone) {
    EXPECT_EQ(read("\r\n \t\v\f\r\n\nalice\r\n"), List{"alice="});
}

TEST_F(Registry, TakesAnIndentedNumberSignForAComment) {
    EXPECT_EQ(read("\t #alice net=a\n\r#bob\n"), List{});
}

TEST_F(Registry, TakesANumberSignInsideALineForASetting) {
    EXPECT_EQ(read("alice net=a # home office\n"), List{"alice=a"});
    EXPECT_EQ(errors, "unknown setting: #\nunknown setting: home\nunknown setting: office\n");
}

TEST_F(Registry, TakesNetWithoutAnEqualsSignForUnknown) {
    EXPECT_EQ(read("alice net\n"), List{"alice="});
    EXPECT_EQ(errors, "unknown setting: net\n");
}

TEST_F(Registry, TakesEverythingAfterTheFirstEqualsSignForTheNetwork) {
    EXPECT_EQ(read("alice net=net=a=b\n"), List{"alice=net=a=b"});
}

TEST_F(Registry, ClearsTheNetworkByALaterEmptyOne) {
    EXPECT_EQ(read("bob net=a net=\n"), List{"bob="});
}

TEST_F(Registry, TakesAFirstWordThatLooksLikeASettingForTheName) {
    EXPECT_EQ(read("net=a net=b\n"), List{"net=a=b"});
}

TEST_F(Registry, ReportsAnUnknownSettingOnEachOfAnAccountsLines) {
    EXPECT_EQ(read("bob x\nbob x\n", "bob"), (List{"bob=", "bob="}));
    EXPECT_EQ(errors, "unknown setting: x\nunknown setting: x\n");
}

TEST_F(Registry, DoesNotFindAnAccountByAPartOfItsName) {
    EXPECT_EQ(read("alice net=a\n", "alic"), List{});
    EXPECT_EQ(read("alice net=a\n", "alice "), List{});
    EXPECT_EQ(read("alice net=a\n", "alice\n"), List{});
}

TEST_F(Registry, DoesNotFindACommentedAccount) {
    EXPECT_EQ(read("#alice net=a\n# alice net=a\n", "#alice"), List{});
    EXPECT_EQ(read("#alice net=a\n# alice net=a\n", "alice"), List{});
}

TEST_F(Registry, DoesNotFindAnAccountBehindANulByte) {
    EXPECT_EQ(read(std::string("\0alice net=a\n", 13), "alice"), List{});
    EXPECT_EQ(read(std::string("alice\0 net=a\n", 13), "alice"), List{});
}

TEST_F(Registry, KeepsANulByteInANetwork) {
    EXPECT_EQ(read(std::string("alice net=1\0002\n", 14)), List{std::string("alice=1\0002", 9)});
}

TEST_F(Registry, TakesASettingOfAMegabyte) {
    const std::string network(1 << 20, '1');
    EXPECT_EQ(read("alice net=" + network + "\n"), List{"alice=" + network});
}

TEST_F(Registry, BelowARegularFileIsAnError) {
    const std::string path = directory.write("/kiv.users", "") + "/below";
    std::list<AccountEntry> entries;
    try {
        readAccounts(entries, "", path.c_str());
        FAIL() << "read";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "cannot open " + path + ": Not a directory");
    }
}

TEST_F(Registry, ThatIsMissingLeavesTheListAsItWas) {
    std::list<AccountEntry> entries = {{"alice", "a"}};
    EXPECT_THROW(readAccounts(entries, "", directory.at("/absent").c_str()), std::runtime_error);
    EXPECT_EQ(entries.size(), 1U);
}

}  // namespace
