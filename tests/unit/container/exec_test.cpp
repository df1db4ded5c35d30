// The part of exec that needs no container; the end-to-end tests check the rest.
#include "container/exec.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(ExecCommand, RefusesAnEmptyName) {
    try {
        execCommand(nullptr);
        FAIL() << "returned";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "missing user!");
    }
}

}  // namespace
