#include "config/account_registry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <iostream>
#include <list>
#include <stdexcept>
#include <string>

#include "../fs/narrowed_process.h"
#include "../fs/temporary_directory.h"
#include "../util/captured.h"
#include "../util/child_process.h"

namespace {

class Registry : public testing::Test {
protected:
    /// The selected accounts as "name=net" texts, and standard error in `errors`.
    std::list<std::string> read(const std::string& content, const std::string& user = "") {
        const std::string path = directory.write("/kiv.users", content);
        std::list<AccountEntry> entries;
        Captured standardError(STDERR_FILENO);
        readAccounts(entries, user, path.c_str());
        errors = standardError.text();
        std::list<std::string> texts;
        for (const AccountEntry& entry : entries) {
            texts.push_back(entry.name + "=" + entry.net);
        }
        return texts;
    }

    TemporaryDirectory directory;
    std::string errors;
};

using List = std::list<std::string>;

TEST_F(Registry, MayBeEmpty) {
    EXPECT_EQ(read(""), List{});
    EXPECT_EQ(read("\n\n# comment\n  \t# indented\n"), List{});
}

TEST_F(Registry, ListsAccountsInFileOrder) {
    EXPECT_EQ(read("bob net=b\nalice net=a\n"), (List{"bob=b", "alice=a"}));
    EXPECT_EQ(errors, "");
}

TEST_F(Registry, LeavesTheNetworkOfABareNameEmpty) {
    EXPECT_EQ(read("alice\n"), List{"alice="});
    EXPECT_EQ(read("alice net=\n"), List{"alice="});
}

TEST_F(Registry, TakesTheLastOfTwoNetworks) {
    EXPECT_EQ(read("bob net=a net=b\n"), List{"bob=b"});
}

TEST_F(Registry, ReportsAnUnknownSettingAndKeepsTheAccount) {
    EXPECT_EQ(read("bob mtu=1500 net=a NET=b\n"), List{"bob=a"});
    EXPECT_EQ(errors, "unknown setting: mtu=1500\nunknown setting: NET=b\n");
}

TEST_F(Registry, ReportsOnlySettingsOfSelectedAccounts) {
    EXPECT_EQ(read("bob mtu=1500\nalice net=a\n", "alice"), List{"alice=a"});
    EXPECT_EQ(errors, "");
}

TEST_F(Registry, SeparatesWordsByBlanksAndTabs) {
    EXPECT_EQ(read(" \t alice\t \tnet=a \r\n"), List{"alice=a"});
}

TEST_F(Registry, SelectsByTheExactName) {
    const std::string content = "Bob net=1\nbob net=2\nbobby net=3\n#bob net=4\n";
    EXPECT_EQ(read(content, "bob"), List{"bob=2"});
    EXPECT_EQ(read(content, "BOB"), List{});
}

TEST_F(Registry, YieldsAnEntryForEachLineOfAnAccount) {
    EXPECT_EQ(read("a net=1\nb\na net=2\n", "a"), (List{"a=1", "a=2"}));
}

TEST_F(Registry, ReadsALastLineWithoutANewline) {
    EXPECT_EQ(read("alice net=a"), List{"alice=a"});
}

TEST_F(Registry, KeepsBytesThatAreNotText) {
    const std::string name("al\0ice\xff", 7);
    EXPECT_EQ(read(name + " net=a\n"), List{name + "=a"});
    EXPECT_EQ(read(name + " net=a\n", "al"), List{});
}

TEST_F(Registry, AcceptsLinesOfAMegabyte) {
    const std::string name(1 << 20, 'x');
    EXPECT_EQ(read(name + " net=a\nbob\n"), (List{name + "=a", "bob="}));
}

TEST_F(Registry, HasTheLastOfManyAccounts) {
    std::string content;
    for (int i = 0; i < 100'000; ++i) {
        content += "user" + std::to_string(i) + " net=a\n";
    }
    EXPECT_EQ(read(content, "user99999"), List{"user99999=a"});
}

TEST_F(Registry, ThatIsMissingIsAnError) {
    const std::string path = directory.at("/absent");
    std::list<AccountEntry> entries;
    try {
        readAccounts(entries, "", path.c_str());
        FAIL() << "read";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "cannot open " + path + ": No such file or directory");
    }
}

TEST_F(Registry, ThatCannotBeReadEndsTheListWithoutAnError) {
    std::list<AccountEntry> entries;
    readAccounts(entries, "", directory.path.c_str());
    EXPECT_TRUE(entries.empty());
}

TEST(SelectAccounts, TreatsAnEmptyNameAsNotConfigured) {
    try {
        selectAccounts("");
        FAIL() << "selected";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "KIV not configured for requested user");
    }
}

// Lines of the registry as editors and panels write them.

TEST_F(Registry, AppendsToTheList) {
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

TEST_F(Registry, SkipsLinesOfOnlyWhiteSpace) {
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

TEST_F(Registry, DoesNotFindAnAccountAfterANulByte) {
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

TEST_F(Registry, ThatIsMissingDoesNotChangeTheList) {
    std::list<AccountEntry> entries = {{"alice", "a"}};
    EXPECT_THROW(readAccounts(entries, "", directory.at("/absent").c_str()), std::runtime_error);
    EXPECT_EQ(entries.size(), 1U);
}

// The accounts of a command. The registry's fixed path may or may not exist on this machine; in a
// child that cannot open any more files it fails in the same way everywhere.

std::string failureWithoutDescriptors(const char* user) {
    const auto result = inChild([user] {
        leaveDescriptors(0);
        try {
            selectAccounts(user);
        } catch (const std::runtime_error& error) {
            std::cout << error.what() << std::flush;
            return 0;
        }
        return 1;
    });
    EXPECT_EQ(outcome(result), 0);
    return result.output;
}

TEST(SelectAccounts, ReadsTheRegistryForAllAccounts) {
    EXPECT_EQ(failureWithoutDescriptors(nullptr),
              "cannot open /etc/tarnwell/kiv.users: Too many open files");
}

TEST(SelectAccounts, ReadsTheRegistryForANamedAccount) {
    EXPECT_EQ(failureWithoutDescriptors("alice"),
              "cannot open /etc/tarnwell/kiv.users: Too many open files");
}

TEST(SelectAccounts, RefusesAnEmptyNameBeforeItReadsTheRegistry) {
    EXPECT_EQ(failureWithoutDescriptors(""), "KIV not configured for requested user");
}

}  // namespace
