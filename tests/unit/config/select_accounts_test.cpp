// The accounts of a command. The registry's fixed path may or may not exist where the tests run: a
// child that cannot open any more files meets the same failure everywhere.
#include <gtest/gtest.h>

#include <iostream>
#include <stdexcept>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"
#include "config/account_registry.h"

namespace {

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
