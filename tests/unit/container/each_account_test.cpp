// The loop over accounts, without the host's registry: a process that cannot open any more files
// fails in the same way whether there is one or not.
#include "container/each_account.h"

#include <gtest/gtest.h>

#include <iostream>
#include <stdexcept>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"

namespace {

ChildResult eachAccount(const char* user) {
    return inChild([user] {
        leaveDescriptors(0);
        try {
            forEachAccount(user, [](const AccountEntry&) { std::cout << "called;"; });
        } catch (const std::runtime_error& error) {
            std::cout << error.what() << std::flush;
            return 0;
        }
        return 1;
    });
}

TEST(EachAccount, OfAllNeedsTheRegistry) {
    const auto result = eachAccount(nullptr);
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "cannot open /etc/tarnwell/kiv.users: Too many open files");
}

TEST(EachAccount, ThatIsNamedNeedsTheRegistry) {
    const auto result = eachAccount("alice");
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "cannot open /etc/tarnwell/kiv.users: Too many open files");
}

TEST(EachAccount, WithAnEmptyNameSelectsNoneAndNotAll) {
    const auto result = eachAccount("");
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "KIV not configured for requested user");
}

}  // namespace
