// Both layouts byte for byte. Expected colours come from the process, because the tests may run on
// a terminal.
#include "container/status_report.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <iostream>
#include <limits>
#include <tuple>
#include <utility>

#include "../util/captured.h"
#include "util/console_colors.h"
#include "util/string_util.h"

namespace {

constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
constexpr auto kSmallest = std::numeric_limits<std::int64_t>::min();

using Figures = std::pair<std::int64_t, std::int64_t>;  // current and limit

class Report : public testing::Test {
protected:
    ContainerStatus inactive(const std::string& name) {
        ContainerStatus status(handle);
        status.userName = name;
        return status;
    }

    ContainerStatus active(const std::string& name) {
        ContainerStatus status = inactive(name);
        status.active = true;
        return status;
    }

    ContainerStatus withProcesses(const std::string& name, Figures figures) {
        ContainerStatus status = active(name);
        status.hasProcesses = true;
        std::tie(status.pidsCurrent, status.pidsMax) = figures;
        return status;
    }

    ContainerStatus withMemory(const std::string& name, Figures figures) {
        ContainerStatus status = active(name);
        status.hasMemory = true;
        std::tie(status.memoryCurrent, status.memoryHigh) = figures;
        return status;
    }

    ContainerStatus withBoth(const std::string& name, Figures processes, Figures memory) {
        ContainerStatus status = withProcesses(name, processes);
        status.hasMemory = true;
        std::tie(status.memoryCurrent, status.memoryHigh) = memory;
        return status;
    }

    const ContainerHandle handle{"daemon"};
    const std::string yes = std::string(colorGreen) + "yes" + colorReset;
    const std::string no = std::string(colorRed) + "no" + colorReset;
};

std::string report(const ContainerStatus& status) {
    Captured standardOutput(STDOUT_FILENO);
    printStatus(status);
    return standardOutput.text();
}

/// The table without colours, after a newline, so that the expected text can begin on a new line.
std::string table(const std::list<ContainerStatus>& statuses) {
    Captured standardOutput(STDOUT_FILENO);
    printStatusTable(statuses);
    std::string text = "\n" + standardOutput.text();
    for (const char* color : {colorGreen, colorRed, colorReset}) {
        StringUtil::replaceAll(color, "", text);
    }
    return text;
}

using SingleReport = Report;
using Table = Report;

TEST_F(SingleReport, OfAnInactiveContainerHasTwoLines) {
    EXPECT_EQ(report(inactive("alice")), "Account: alice\nActive: " + no + "\n");
}

TEST_F(SingleReport, LeavesOutUnknownFigures) {
    EXPECT_EQ(report(active("alice")), "Account: alice\nActive: " + yes + "\n");
    EXPECT_EQ(report(withMemory("alice", {7, 0})),
              "Account: alice\nActive: " + yes + "\nMemory: 7\n");
}

TEST_F(SingleReport, ShowsFiguresAndPercentages) {
    EXPECT_EQ(report(withBoth("alice", {5, 20}, {1023, 1024})),
              "Account: alice\nActive: " + yes + "\nProcesses: 5 (25%)\nMemory: 1023 (99%)\n");
}

TEST_F(SingleReport, ShowsABareNumberWithoutLimit) {
    EXPECT_EQ(report(withBoth("alice", {5, -1}, {1023, 0})),
              "Account: alice\nActive: " + yes + "\nProcesses: 5\nMemory: 1023\n");
}

TEST_F(SingleReport, ShowsNegativeAndHugeFigures) {
    EXPECT_EQ(report(withBoth("alice", {-1, 1}, {kLargest, 1})),
              "Account: alice\nActive: " + yes +
                  "\nProcesses: -1 (-100%)\n"
                  "Memory: 9223372036854775807 (-100%)\n");
}

TEST_F(Table, OfNoAccountIsAHeaderBetweenThreeRules) {
    EXPECT_EQ(table({}), R"(
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
+---------+--------+-----------+----------+
)");
}

TEST_F(Table, HasEmptyCellsForUnknownFigures) {
    EXPECT_EQ(table({inactive("alice"), active("bob")}), R"(
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | no     |           |          |
| bob     | yes    |           |          |
+---------+--------+-----------+----------+
)");
}

TEST_F(Table, KeepsTheOrderAndAlignsNumbersToTheRight) {
    EXPECT_EQ(table({withBoth("zoe", {5, 20}, {1023, 1024}), inactive("alice"),
                     withBoth("bob", {1000, 1000}, {0, 10})}),
              R"(
+---------+--------+-------------+-------------+
| Account | Active | Processes   | Memory      |
+---------+--------+-------------+-------------+
| zoe     | yes    |    5  (25%) | 1023  (99%) |
| alice   | no     |             |             |
| bob     | yes    | 1000 (100%) |    0   (0%) |
+---------+--------+-------------+-------------+
)");
}

TEST_F(Table, ShowsInfinityOnSevenColumnsWithoutLimit) {
    EXPECT_EQ(table({withBoth("alice", {5, -1}, {7, 0}), withBoth("bob", {6, 0}, {8, -1})}), R"(
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | yes    |  5    (∞) | 7    (∞) |
| bob     | yes    |  6    (∞) | 8    (∞) |
+---------+--------+-----------+----------+
)");
    EXPECT_NE(table({withMemory("alice", {7, 0})}).find(" | 7    (\xe2\x88\x9e) |\n"),
              std::string::npos);
}

TEST_F(Table, IsAsWideAsTheLongestNameAndTheLargestFigures) {
    EXPECT_EQ(table({withBoth("web-customer-000123", {123, 0}, {12'345'678'901, 0}), active("b")}),
              R"(
+---------------------+--------+------------+--------------------+
| Account             | Active | Processes  | Memory             |
+---------------------+--------+------------+--------------------+
| web-customer-000123 | yes    | 123    (∞) | 12345678901    (∞) |
| b                   | yes    |            |                    |
+---------------------+--------+------------+--------------------+
)");
}

TEST_F(Table, IsNotWidenedByUnknownFigures) {
    ContainerStatus status = active("alice");
    status.pidsCurrent = status.memoryCurrent = kLargest;
    EXPECT_EQ(table({status}), R"(
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | yes    |           |          |
+---------+--------+-----------+----------+
)");
}

// Seven columns hold four digits; with five or more digits the line is longer than the others.
TEST_F(Table, HasALongerLineForAPercentageThatIsWiderThanItsColumn) {
    EXPECT_EQ(table({withBoth("alice", {99, 1}, {7, 0}), withBoth("bob", {100, 1}, {7, 70}),
                     withBoth("carol", {100, 0}, {123, 1})}),
              R"(
+---------+--------+------------+------------+
| Account | Active | Processes  | Memory     |
+---------+--------+------------+------------+
| alice   | yes    |  99(9900%) |   7    (∞) |
| bob     | yes    | 100(10000%) |   7  (10%) |
| carol   | yes    | 100    (∞) | 123(12300%) |
+---------+--------+------------+------------+
)");
}

TEST_F(Table, CountsTheDigitsOfNegativeFiguresWithoutTheirSign) {
    EXPECT_EQ(table({withMemory("alice", {-1, 10}), withMemory("bob", {kSmallest, -1})}), R"(
+---------+--------+-----------+----------+
| Account | Active | Processes | Memory   |
+---------+--------+-----------+----------+
| alice   | yes    |           | -1 (-10%) |
| bob     | yes    |           | -9223372036854775808    (∞) |
+---------+--------+-----------+----------+
)");
    EXPECT_EQ(table({withMemory("alice", {-12'345, -1})}), R"(
+---------+--------+-----------+--------------+
| Account | Active | Processes | Memory       |
+---------+--------+-----------+--------------+
| alice   | yes    |           | -12345    (∞) |
+---------+--------+-----------+--------------+
)");
}

TEST_F(Table, LeavesTheStreamAsItWas) {
    Captured standardOutput(STDOUT_FILENO);
    printStatusTable({});
    EXPECT_EQ(std::cout.fill(), ' ');
    EXPECT_EQ(std::cout.width(), 0);
}

TEST(Percentage, IsTruncatedTowardsZero) {
    EXPECT_EQ(percentage(0, 1), "0");
    EXPECT_EQ(percentage(5, 20), "25");
    EXPECT_EQ(percentage(1023, 1024), "99");
    EXPECT_EQ(percentage(1, 101), "0");
    EXPECT_EQ(percentage(11, 1), "1100");
    EXPECT_EQ(percentage(-1023, 1024), "-99");
    EXPECT_EQ(percentage(-1, 101), "0");
    EXPECT_EQ(percentage(-10, 100), "-10");
}

TEST(Percentage, IsExactUpToTheLargestHundredfoldThatFits) {
    EXPECT_EQ(percentage(92'233'720'368'547'758, 1), "9223372036854775800");
    EXPECT_EQ(percentage(92'233'720'368'547'758, 92'233'720'368'547'759), "99");
    EXPECT_EQ(percentage(-92'233'720'368'547'758, 1), "-9223372036854775800");
}

TEST(Percentage, WrapsWhereAHundredfoldDoesNotFit) {
    EXPECT_EQ(percentage(92'233'720'368'547'759, 1), "-9223372036854775716");
    EXPECT_EQ(percentage(-92'233'720'368'547'759, 1), "9223372036854775716");
    EXPECT_EQ(percentage(kLargest, 1), "-100");
    EXPECT_EQ(percentage(kLargest, kLargest), "0");
    EXPECT_EQ(percentage(kSmallest, 1), "0");
}

}  // namespace
