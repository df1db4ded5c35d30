// kiv-check's command line. The end-to-end tests check the error messages byte for byte.
#include "companions/check/check_options.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <vector>

namespace {

CheckRequest parse(std::initializer_list<const char*> words) {
    std::vector<std::string> texts(words.begin(), words.end());
    std::vector<char*> arguments;
    for (std::string& text : texts) {
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);
    return parseCheckOptions(static_cast<int>(texts.size()), arguments.data());
}

TEST(CheckOptions, SelectBothFilesByDefault) {
    const CheckRequest request = parse({"kiv-check"});
    EXPECT_EQ(request.action, Action::Work);
    EXPECT_FALSE(request.configuration || request.registry);
    EXPECT_FALSE(request.host || request.json || request.quiet || request.strict);
}

TEST(CheckOptions, MayBeCombined) {
    const CheckRequest request =
        parse({"kiv-check", "-qc", "one", "--registry=two", "--host", "--json", "--strict"});
    EXPECT_EQ(request.configuration, "one");
    EXPECT_EQ(request.registry, "two");
    EXPECT_TRUE(request.host && request.json && request.quiet && request.strict);
}

TEST(CheckOptions, AskForHelpAndVersion) {
    EXPECT_EQ(parse({"kiv-check", "-h"}).action, Action::Help);
    EXPECT_EQ(parse({"kiv-check", "--version", "--nonsense"}).action, Action::Version);
}

TEST(CheckOptions, RefuseOperandsAndUnknownOptions) {
    EXPECT_THROW(parse({"kiv-check", "kiv.conf"}), std::runtime_error);
    EXPECT_THROW(parse({"kiv-check", "-x"}), std::runtime_error);
    EXPECT_THROW(parse({"kiv-check", "-c"}), std::runtime_error);
}

}  // namespace
