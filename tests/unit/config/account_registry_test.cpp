#include "config/account_registry.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "registry_file.h"

namespace {

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

TEST_F(Registry, ReportsSettingsOfSelectedAccountsAlone) {
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

TEST_F(Registry, KeepsBytesThatAreNoText) {
    const std::string name("al\0ice\xff", 7);
    EXPECT_EQ(read(name + " net=a\n"), List{name + "=a"});
    EXPECT_EQ(read(name + " net=a\n", "al"), List{});
}

TEST_F(Registry, TakesLinesOfAMegabyte) {
    const std::string name(1 << 20, 'x');
    EXPECT_EQ(read(name + " net=a\nbob\n"), (List{name + "=a", "bob="}));
}

TEST_F(Registry, IsStreamed) {
    std::string content;
    for (int i = 0; i < 1'000'000; ++i) {
        content += "user" + std::to_string(i) + " net=a\n";
    }
    EXPECT_EQ(read(content, "user999999"), List{"user999999=a"});
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

TEST(SelectAccounts, TakesAnEmptyNameForOneThatIsNotConfigured) {
    try {
        selectAccounts("");
        FAIL() << "selected";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "KIV not configured for requested user");
    }
}

}  // namespace
