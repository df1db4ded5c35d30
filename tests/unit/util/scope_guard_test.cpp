#include "util/scope_guard.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

TEST(ScopeGuard, ActsWhenTheScopeIsLeft) {
    int undone = 0;
    {
        const ScopeGuard guard([&undone] { ++undone; });
        EXPECT_EQ(undone, 0);
    }
    EXPECT_EQ(undone, 1);
}

TEST(ScopeGuard, ActsWhenAnExceptionLeavesTheScope) {
    int undone = 0;
    try {
        const ScopeGuard guard([&undone] { ++undone; });
        throw std::runtime_error("failed");
    } catch (const std::runtime_error&) {
        ++undone;
    }
    EXPECT_EQ(undone, 2);
}

TEST(ScopeGuard, DoesNotActOnceDismissed) {
    int undone = 0;
    {
        ScopeGuard guard([&undone] { ++undone; });
        guard.dismiss();
    }
    EXPECT_EQ(undone, 0);
}

TEST(ScopeGuard, UndoesTheLatestStepFirst) {
    std::string order;
    {
        const ScopeGuard first([&order] { order += "first "; });
        const ScopeGuard second([&order] { order += "second "; });
    }
    EXPECT_EQ(order, "second first ");
}

}  // namespace
