// The process-wide object: replaced as a whole, or left alone.
#include <gtest/gtest.h>

#include "configuration_file.h"

namespace {

using List = std::list<std::string>;

constexpr const char* kEverything =
    "allowlist /srv\n a\nhide\n /b\nempty\n /c\nbind\n /d\ncap_add\n e\ncap_drop\n f\n"
    "seccomp\n g\nfilter\n /h i\n";

void expectEverything() {
    const Configuration& values = configuration();
    EXPECT_EQ(values.allowlists, (std::map<std::string, List>{{"/srv", {"a"}}}));
    EXPECT_EQ(values.hide, List{"/b"});
    EXPECT_EQ(values.empty, List{"/c"});
    EXPECT_EQ(values.bind, List{"/d"});
    EXPECT_EQ(values.cap_add, List{"e"});
    EXPECT_EQ(values.cap_drop, List{"f"});
    EXPECT_EQ(values.seccomp, List{"g"});
    EXPECT_EQ(values.filters, (std::map<std::string, std::string>{{"/h", "i"}}));
}

TEST_F(ConfigurationFile, FillsEveryFieldFromItsOwnSection) {
    ASSERT_EQ(load(kEverything), "");
    expectEverything();
}

TEST_F(ConfigurationFile, LeavesNothingOfTheContentsBefore) {
    ASSERT_EQ(load(kEverything), "");
    ASSERT_EQ(load("hide\n /other\n"), "");
    EXPECT_EQ(configuration().hide, List{"/other"});
    EXPECT_TRUE(configuration().allowlists.empty());
    EXPECT_TRUE(configuration().empty.empty());
    EXPECT_TRUE(configuration().bind.empty());
    EXPECT_TRUE(configuration().cap_add.empty());
    EXPECT_TRUE(configuration().cap_drop.empty());
    EXPECT_TRUE(configuration().seccomp.empty());
    EXPECT_TRUE(configuration().filters.empty());
    EXPECT_EQ(configuration().ipCommand, "ip");
    EXPECT_EQ(configuration().iptablesCommand, "iptables");
    EXPECT_EQ(configuration().sysctlCommand, "sysctl");
}

TEST_F(ConfigurationFile, WithAFaultKeepsEveryFieldOfTheContentsBefore) {
    ASSERT_EQ(load(kEverything), "");
    EXPECT_EQ(load("hide\n /x\nbind\n /y\nallowlist /z\n z\nfilter\n /x y\n /x\n"),
              "line 9: value is not a pair");
    expectEverything();
}

TEST_F(ConfigurationFile, ThatCannotBeOpenedKeepsTheContentsBefore) {
    ASSERT_EQ(load(kEverything), "");
    EXPECT_THROW(Configuration::load(directory.at("/absent")), std::runtime_error);
    expectEverything();
}

TEST_F(ConfigurationFile, ThatCannotBeReadKeepsTheContentsBefore) {
    ASSERT_EQ(load(kEverything), "");
    EXPECT_THROW(Configuration::load(directory.path), std::runtime_error);
    expectEverything();
}

TEST_F(ConfigurationFile, BelowARegularFileCannotBeOpened) {
    const std::string path = directory.write("/kiv.conf", "") + "/below";
    try {
        Configuration::load(path);
        FAIL() << "loaded";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "cannot open file " + path);
    }
}

TEST_F(ConfigurationFile, ReportsTheFirstOfSeveralFaults) {
    EXPECT_EQ(load("hide\n /a\nbind x\nallowlist\n"), "line 3: unexpected arguments");
}

TEST_F(ConfigurationFile, DoesNotLetItsKeywordsChangeTheHostTools) {
    EXPECT_EQ(load("ipCommand\n /opt/ip\n"), "line 2: not parsing a list");
    ASSERT_EQ(load("ipCommand\niptablesCommand\nsysctlCommand\n"), "");
    EXPECT_EQ(configuration().ipCommand, "ip");
}

}  // namespace
