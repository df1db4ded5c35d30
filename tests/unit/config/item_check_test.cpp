// Configuration::read with a check of its items.
#include <gtest/gtest.h>

#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "../fs/temporary_directory.h"
#include "../util/failure_of.h"
#include "config/configuration.h"

namespace {

struct Seen {
    Configuration::Section section;
    std::string item;
    bool operator==(const Seen&) const = default;
};

class ItemCheck : public testing::Test {
protected:
    Configuration read(const std::string& content) {
        return Configuration::read(directory.write("/kiv.conf", content),
                                   [this](Configuration::Section section, const std::string& item) {
                                       if (item == "refused") {
                                           throw std::runtime_error("no, not '" + item + "'");
                                       }
                                       seen.push_back({section, item});
                                   });
    }

    std::string fault(const std::string& content) {
        return failureOf([&] { read(content); });
    }

    std::vector<Seen> seen;
    TemporaryDirectory directory;
};

TEST_F(ItemCheck, IsGivenTheItemsOfEveryListInFileOrder) {
    read(
        "seccomp\n f g\nhide\n /a\n\t/b \nempty\n /c\nbind\n /d\ncap_add\n e\ncap_drop\n h\nhide\n"
        " /i\n");
    EXPECT_EQ(seen, (std::vector<Seen>{{&Configuration::seccomp, "f g"},
                                       {&Configuration::hide, "/a"},
                                       {&Configuration::hide, "/b"},
                                       {&Configuration::empty, "/c"},
                                       {&Configuration::bind, "/d"},
                                       {&Configuration::cap_add, "e"},
                                       {&Configuration::cap_drop, "h"},
                                       {&Configuration::hide, "/i"}}));
}

TEST_F(ItemCheck, IsGivenNeitherNamesOfAllowlistsNorFiltersNorComments) {
    read("hide\n # x\nallowlist /etc\n refused\nfilter\n refused x\n /etc/x refused\n");
    EXPECT_TRUE(seen.empty());
}

TEST_F(ItemCheck, IsGivenALineOfBlanksAsAnEmptyItem) {
    read("cap_add\n\n  \t \n");
    EXPECT_EQ(seen, (std::vector<Seen>{{&Configuration::cap_add, ""}}));
}

TEST_F(ItemCheck, HasItsRefusalReportedWithTheLine) {
    EXPECT_EQ(fault("# x\nhide\n /a\n\n refused\n /b\n"), "line 5: no, not 'refused'");
    EXPECT_EQ(seen, (std::vector<Seen>{{&Configuration::hide, "/a"}}));
}

TEST_F(ItemCheck, LeavesTheItemsInTheResult) {
    const Configuration read = this->read("hide\n /a\nallowlist /etc\n refused\n");
    EXPECT_EQ(read.hide, std::list<std::string>{"/a"});
    EXPECT_EQ(read.allowlists.at("/etc"), std::list<std::string>{"refused"});
}

TEST_F(ItemCheck, DoesNotChangeTheProcessesConfiguration) {
    Configuration::load(directory.write("/other.conf", "hide\n /kept\n"));
    read("hide\n /a\n");
    EXPECT_EQ(configuration().hide, std::list<std::string>{"/kept"});
}

}  // namespace
