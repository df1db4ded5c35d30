#include "util/exception_tracer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <exception>
#include <stdexcept>

#include "child_process.h"

namespace {

// noexcept stands for the bottom of the stack: GoogleTest itself would catch what leaves a test
int throwFromTheBottom(const std::function<void()>& thrower) noexcept {
    ExceptionTracer::enable();
    thrower();
    return 0;
}

TEST(ExceptionTracer, TellsTypeAndTextOfWhatNobodyCaught) {
    const auto result =
        inChild([] { return throwFromTheBottom([] { throw std::invalid_argument("stoull"); }); });
    EXPECT_EQ(outcome(result), -SIGABRT);
    EXPECT_THAT(result.errorOutput,
                testing::StartsWith("uncaught exception std::invalid_argument: stoull\n"));
}

TEST(ExceptionTracer, TellsTheTypeOfWhatIsNoStandardException) {
    const auto result = inChild([] { return throwFromTheBottom([] { throw 7; }); });
    EXPECT_EQ(outcome(result), -SIGABRT);
    EXPECT_THAT(result.errorOutput, testing::StartsWith("uncaught exception int\n"));
}

TEST(ExceptionTracer, TellsATerminationWithoutAnException) {
    const auto result = inChild([] { return throwFromTheBottom([] { std::terminate(); }); });
    EXPECT_EQ(outcome(result), -SIGABRT);
    EXPECT_THAT(result.errorOutput, testing::StartsWith("terminated without an exception\n"));
}

TEST(ExceptionTracer, GivesABacktrace) {
    const auto result = inChild([] { return throwFromTheBottom([] { throw 7; }); });
    EXPECT_THAT(result.errorOutput, testing::HasSubstr("unit_tests"));
}

}  // namespace
