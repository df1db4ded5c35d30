// kiv-refresh's command line. The end-to-end tests check the error messages byte for byte.
#include "companions/refresh/refresh_options.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

/// Keeps the texts that a request points into.
class RefreshOptions : public testing::Test {
protected:
    RefreshRequest parse(std::initializer_list<const char*> words) {
        texts.assign(words.begin(), words.end());
        std::vector<char*> arguments;
        for (std::string& text : texts) {
            arguments.push_back(text.data());
        }
        arguments.push_back(nullptr);
        return parseRefreshOptions(static_cast<int>(texts.size()), arguments.data());
    }

    std::vector<std::string> texts;
};

TEST_F(RefreshOptions, WithOnlyAnAccountSelectANewView) {
    const RefreshRequest request = parse({"kiv-refresh", "alice"});
    EXPECT_EQ(request.action, Action::Work);
    EXPECT_STREQ(request.user, "alice");
    EXPECT_EQ(request.configFile, nullptr);
    EXPECT_EQ(request.what, Refresh::NewView);
    EXPECT_FALSE(request.showSteps);
}

TEST_F(RefreshOptions, MayBeInAnyOrder) {
    for (const auto& words :
         {std::initializer_list<const char*>{"kiv-refresh", "alice", "--in-place", "-dc", "file"},
          {"kiv-refresh", "-d", "alice", "--config=file", "--in-place"},
          {"kiv-refresh", "-c", "file", "-d", "--in-place", "--", "alice"}}) {
        const RefreshRequest request = parse(words);
        EXPECT_STREQ(request.user, "alice");
        EXPECT_STREQ(request.configFile, "file");
        EXPECT_EQ(request.what, Refresh::InPlace);
        EXPECT_TRUE(request.showSteps);
    }
}

TEST_F(RefreshOptions, NameOneAccountOrAll) {
    EXPECT_EQ(parse({"kiv-refresh", "-a"}).user, nullptr);
    EXPECT_STREQ(parse({"kiv-refresh", "--", "-a"}).user, "-a");
    EXPECT_THROW(parse({"kiv-refresh"}), std::runtime_error);
    EXPECT_THROW(parse({"kiv-refresh", "-a", "alice"}), std::runtime_error);
    EXPECT_THROW(parse({"kiv-refresh", "alice", "bob"}), std::runtime_error);
}

TEST_F(RefreshOptions, ThatAskForHelpOrVersionNeedNoUser) {
    EXPECT_EQ(parse({"kiv-refresh", "-d", "--help", "--nonsense"}).action, Action::Help);
    EXPECT_EQ(parse({"kiv-refresh", "alice", "-v"}).action, Action::Version);
}

}  // namespace
