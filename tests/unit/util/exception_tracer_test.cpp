#include "util/exception_tracer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "child_process.h"

namespace kivtest {

struct Trouble : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Plain {
    int number = 7;
};

}  // namespace kivtest

namespace {

// noexcept stands for the bottom of the stack: GoogleTest itself would catch what leaves a test
int throwFromTheBottom(const std::function<void()>& thrower) noexcept {
    ExceptionTracer::enable();
    thrower();
    return 0;
}

TEST(ExceptionTracer, PrintsTypeAndTextOfAnUncaughtException) {
    const auto result =
        inChild([] { return throwFromTheBottom([] { throw std::invalid_argument("stoull"); }); });
    EXPECT_EQ(outcome(result), -SIGABRT);
    EXPECT_THAT(result.errorOutput,
                testing::StartsWith("uncaught exception std::invalid_argument: stoull\n"));
}

TEST(ExceptionTracer, PrintsTheTypeOfANonStandardException) {
    const auto result = inChild([] { return throwFromTheBottom([] { throw 7; }); });
    EXPECT_EQ(outcome(result), -SIGABRT);
    EXPECT_THAT(result.errorOutput, testing::StartsWith("uncaught exception int\n"));
}

TEST(ExceptionTracer, ReportsATerminationWithoutAnException) {
    const auto result = inChild([] { return throwFromTheBottom([] { std::terminate(); }); });
    EXPECT_EQ(outcome(result), -SIGABRT);
    EXPECT_THAT(result.errorOutput, testing::StartsWith("terminated without an exception\n"));
}

TEST(ExceptionTracer, PrintsABacktrace) {
    const auto result = inChild([] { return throwFromTheBottom([] { throw 7; }); });
    EXPECT_THAT(result.errorOutput, testing::HasSubstr("unit_tests"));
}

// noexcept stands for the bottom of the stack: GoogleTest itself would catch what leaves a test
int runAtTheBottom(void (*action)()) noexcept {
    ExceptionTracer::enable();
    action();
    return 0;
}

struct Ending {
    const char* name;
    void (*action)();
    const char* line;
};

class UncaughtException : public testing::TestWithParam<Ending> {};

TEST_P(UncaughtException, IsReportedOnStandardErrorBeforeTheProgramAborts) {
    const auto result = inChild([] { return runAtTheBottom(GetParam().action); });
    EXPECT_EQ(outcome(result), -SIGABRT);
    EXPECT_EQ(result.errorOutput.substr(0, result.errorOutput.find('\n')), GetParam().line);
    EXPECT_EQ(result.output, "");
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, UncaughtException,
    testing::Values(Ending{"RuntimeError", [] { throw std::runtime_error("no default route"); },
                           "uncaught exception std::runtime_error: no default route"},
                    Ending{"EmptyText", [] { throw std::runtime_error(""); },
                           "uncaught exception std::runtime_error: "},
                    Ending{"BadAlloc", [] { throw std::bad_alloc(); },
                           "uncaught exception std::bad_alloc: std::bad_alloc"},
                    Ending{"SystemError",
                           [] { throw std::system_error(ENOENT, std::generic_category(), "open"); },
                           "uncaught exception std::system_error: open: No such file or directory"},
                    Ending{"Derived", [] { throw kivtest::Trouble("trouble"); },
                           "uncaught exception kivtest::Trouble: trouble"},
                    Ending{"NoStandardException", [] { throw kivtest::Plain(); },
                           "uncaught exception kivtest::Plain"},
                    Ending{"Pointer", [] { throw "text"; }, "uncaught exception char const*"},
                    Ending{"Number", [] { throw 7; }, "uncaught exception int"},
                    Ending{"Terminate", [] { std::terminate(); },
                           "terminated without an exception"},
                    Ending{"RethrowOfNothing", [] { throw; }, "terminated without an exception"},
                    Ending{"RethrownOne",
                           [] {
                               try {
                                   throw kivtest::Trouble("first");
                               } catch (const std::runtime_error&) {
                                   throw;
                               }
                           },
                           "uncaught exception kivtest::Trouble: first"},
                    Ending{"SecondOne",
                           [] {
                               try {
                                   throw kivtest::Trouble("first");
                               } catch (const std::runtime_error&) {
                                   throw std::logic_error("second");
                               }
                           },
                           "uncaught exception std::logic_error: second"},
                    Ending{"PercentSigns", [] { throw std::runtime_error("100%s%n"); },
                           "uncaught exception std::runtime_error: 100%s%n"}),
    [](const testing::TestParamInfo<Ending>& row) { return row.param.name; });

TEST(ExceptionTracer, DoesNotReportCaughtExceptions) {
    const auto result = inChild([] {
        ExceptionTracer::enable();
        try {
            throw std::runtime_error("caught");
        } catch (const std::runtime_error&) {
            return 5;
        }
    });
    EXPECT_EQ(outcome(result), 5);
    EXPECT_EQ(result.errorOutput, "");
}

}  // namespace
