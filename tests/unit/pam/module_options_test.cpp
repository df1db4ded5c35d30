#include "pam/module_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace {

using testing::StrEq;
using testing::ThrowsMessage;

ModuleOptions parse(std::vector<const char*> words) {
    return parseModuleOptions(static_cast<int>(words.size()), words.data());
}

TEST(ModuleOptions, WithoutWordsNameTheUsualRegistryAndRefuseStoppedContainers) {
    const ModuleOptions options = parse({});
    EXPECT_EQ(options.registry, kAccountRegistry);
    EXPECT_FALSE(options.startStopped);
}

TEST(ModuleOptions, SetTheRegistryAndTheHandlingOfAStoppedContainer) {
    const ModuleOptions options = parse({"registry=/etc/other", "stopped=start"});
    EXPECT_EQ(options.registry, "/etc/other");
    EXPECT_TRUE(options.startStopped);
}

TEST(ModuleOptions, TakeTheLastOfSeveralWords) {
    EXPECT_FALSE(parse({"stopped=start", "stopped=refuse"}).startStopped);
}

TEST(ModuleOptions, RefuseARegistryWithoutAnAbsolutePath) {
    for (const char* word : {"registry=", "registry=kiv.users"}) {
        EXPECT_THAT(
            [word] { parse({word}); },
            ThrowsMessage<std::runtime_error>(StrEq("option registry= needs the path of a file")));
    }
}

TEST(ModuleOptions, RefuseUnknownWords) {
    for (const char* word : {"", "registry", "stopped", "stopped=", "stopped=yes", "debug"}) {
        EXPECT_THROW(parse({word}), std::runtime_error) << word;
    }
    EXPECT_THAT([] { parse({"debug"}); },
                ThrowsMessage<std::runtime_error>(StrEq("unknown option 'debug'")));
}

}  // namespace
