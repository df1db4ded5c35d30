// What exec does without a container: the end-to-end tests have the rest.
#include "container/exec.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(ExecCommand, RefusesToGoOnWithoutAName) {
    try {
        execCommand(nullptr);
        FAIL() << "returned";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "missing user!");
    }
}

}  // namespace
