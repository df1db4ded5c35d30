// The status command without the host's registry: a process that cannot open any more files fails
// in the same way whether there is one or not.
#include "container/status.h"

#include <gtest/gtest.h>

#include <iostream>
#include <stdexcept>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"

namespace {

ChildResult status(const char* user) {
    return inChild([user] {
        leaveDescriptors(0);
        try {
            statusCommand(user);
        } catch (const std::runtime_error& error) {
            std::cout << error.what() << std::flush;
            return 0;
        }
        return 1;
    });
}

TEST(StatusCommand, PrintsNoTableWithoutTheRegistry) {
    const auto result = status(nullptr);
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "cannot open /etc/tarnwell/kiv.users: Too many open files");
}

TEST(StatusCommand, WithAnEmptyNameSelectsNoneAndNotAll) {
    const auto result = status("");
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "KIV not configured for requested user");
}

}  // namespace
