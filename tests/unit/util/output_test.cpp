#include "util/output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "child_process.h"

namespace {

TEST(Print, IsBufferedUntilItIsFlushed) {
    const auto result = inChild([] {
        print("first ");
        printError("error ");
        const bool keptBack = ::write(STDOUT_FILENO, "second ", 7) == 7;
        flushOutput();
        return keptBack ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "second first ");
    EXPECT_EQ(result.errorOutput, "error ");
}

TEST(Print, TakesTextWithNulBytes) {
    const auto result = inChild([] {
        print(std::string("a\0b", 3));
        printError(std::string("c\0d", 3));
        return 0;
    });
    EXPECT_EQ(result.output, std::string("a\0b", 3));
    EXPECT_EQ(result.errorOutput, std::string("c\0d", 3));
}

TEST(PrintError, WritesAtOnceAndInOnePiece) {
    const std::string line(100'000, 'x');
    const auto result = inChild([&line]() -> int {
        printError(line);
        ::_exit(0);  // drops buffered text
    });
    EXPECT_EQ(result.errorOutput, line);
}

TEST(Print, IgnoresAFullDisk) {
    const auto result = inChild([] {
        const int full = ::open("/dev/full", O_WRONLY);
        ::dup2(full, STDOUT_FILENO);
        print(std::string(100'000, 'x'));
        flushOutput();
        printError("goes on");
        return 0;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, "goes on");
}

}  // namespace
