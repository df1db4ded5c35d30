// kiv-list's command line. The end-to-end tests check the error messages byte for byte.
#include "companions/list/list_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ListRequest parse(std::initializer_list<const char*> words) {
    std::vector<std::string> texts(words.begin(), words.end());
    std::vector<char*> arguments;
    for (std::string& text : texts) {
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);
    return parseListOptions(static_cast<int>(texts.size()), arguments.data());
}

TEST(ListOptions, SelectATableOfAllAccountsByDefault) {
    const ListRequest request = parse({"kiv-list"});
    EXPECT_EQ(request.action, Action::Work);
    EXPECT_FALSE(request.json);
    EXPECT_THAT(request.users, IsEmpty());
}

TEST(ListOptions, AreTakenInAnyOrder) {
    const ListRequest request = parse({"kiv-list", "alice", "--json", "bob"});
    EXPECT_TRUE(request.json);
    EXPECT_THAT(request.users, ElementsAre("alice", "bob"));
}

TEST(ListOptions, EndAtTwoDashes) {
    EXPECT_THAT(parse({"kiv-list", "--", "--json"}).users, ElementsAre("--json"));
}

TEST(ListOptions, KeepAnEmptyName) {
    EXPECT_THAT(parse({"kiv-list", ""}).users, ElementsAre(""));
}

TEST(ListOptions, AskForHelpAndVersion) {
    EXPECT_EQ(parse({"kiv-list", "alice", "-h"}).action, Action::Help);
    EXPECT_EQ(parse({"kiv-list", "--version", "--nonsense"}).action, Action::Version);
}

TEST(ListOptions, RefuseUnknownOptions) {
    EXPECT_THROW(parse({"kiv-list", "-x"}), std::runtime_error);
    EXPECT_THROW(parse({"kiv-list", "--json=yes"}), std::runtime_error);
}

}  // namespace
