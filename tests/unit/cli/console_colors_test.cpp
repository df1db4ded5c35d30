// The colours are chosen before main, so a choice can be tested only in a separate process: this
// executable runs itself with one test, which prints them.
#include "util/console_colors.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "terminal.h"

namespace {

TEST(ConsoleColors, AreSequencesOrEmptyTogether) {
    const bool colored = *colorGreen != '\0';
    EXPECT_STREQ(colorGreen, colored ? "\033[32m" : "");
    EXPECT_STREQ(colorRed, colored ? "\033[31m" : "");
    EXPECT_STREQ(colorReset, colored ? "\033[0m" : "");
    std::cout << "<" << colorGreen << "|" << colorRed << "|" << colorReset << ">\n";
}

int runTestAbove() {
    // a run that is split over several machines (sharding) might skip that test
    ::unsetenv("GTEST_TOTAL_SHARDS");
    ::unsetenv("GTEST_OUTPUT");
    ::execl("/proc/self/exe", "unit_tests", "--gtest_color=no",
            "--gtest_filter=ConsoleColors.AreSequencesOrEmptyTogether", nullptr);
    return 127;
}

TEST(ConsoleColors, AreSequencesWhenTheProgramStartsOnATerminal) {
    const auto result = onTerminal(STDOUT_FILENO, runTestAbove);
    EXPECT_EQ(outcome(result.child), 0);
    EXPECT_NE(result.terminal.find("<\033[32m|\033[31m|\033[0m>\n"), std::string::npos)
        << result.terminal;
}

TEST(ConsoleColors, AreEmptyWhenStandardOutputIsAFile) {
    const auto result = inChild(runTestAbove);
    EXPECT_EQ(outcome(result), 0);
    EXPECT_NE(result.output.find("<||>\n"), std::string::npos) << result.output;
}

TEST(ConsoleColors, AreEmptyWhenOnlyStandardErrorIsATerminal) {
    const auto result = onTerminal(STDERR_FILENO, runTestAbove);
    EXPECT_EQ(outcome(result.child), 0);
    EXPECT_NE(result.child.output.find("<||>\n"), std::string::npos) << result.child.output;
}

TEST(ConsoleColors, StayWhenStandardOutputIsRedirectedLater) {
    const std::string before = colorGreen;
    const auto result =
        onTerminal(STDOUT_FILENO, [&before] { return colorGreen == before ? 0 : 1; });
    EXPECT_EQ(outcome(result.child), 0);
}

}  // namespace
