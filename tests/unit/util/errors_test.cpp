#include "util/errors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iostream>

#include "child_process.h"
#include "util/output.h"
#include "util/settings.h"

namespace {

TEST(SystemError, EndsInTheSystemsText) {
    EXPECT_STREQ(systemError("cannot open /x: ", ENOENT).what(),
                 "cannot open /x: No such file or directory");
}

TEST(SystemError, EscapesControlCharactersOfItsPath) {
    EXPECT_STREQ(systemError("cannot open /a\nb\x1b: ", ENOENT).what(),
                 "cannot open /a\\x0ab\\x1b: No such file or directory");
}

TEST(ErrorText, OfAnUnknownNumberNamesIt) {
    EXPECT_EQ(errorText(99'999), "Unknown error 99999");
}

TEST(Report, WritesTheLineOnlyToStandardError) {
    const auto result = inChild([] {
        report("no default route");
        return 0;
    });
    EXPECT_EQ(result.errorOutput, "no default route\n");
    EXPECT_EQ(result.output, "");
}

TEST(Report, DoesNotExpandFormats) {
    const auto result = inChild([] {
        report("100%s %n");
        return 0;
    });
    EXPECT_EQ(result.errorOutput, "100%s %n\n");
}

TEST(Report, LeavesErrnoAsItWas) {
    const auto result = inChild([] {
        ::close(STDERR_FILENO);  // the write fails with EBADF
        errno = EXDEV;
        report("lost");
        return errno == EXDEV ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(Report, WritesALineInOnePiece) {
    const auto result = inChild([] {
        std::array<int, 2> ends{};
        // with O_DIRECT every write is a separate packet, pipe(2)
        if (::pipe2(ends.data(), O_DIRECT) != 0 || ::dup2(ends[1], STDERR_FILENO) < 0) {
            return 2;
        }
        report(std::string(300, 'x'));
        std::array<char, 1024> packet{};
        return ::read(ends[0], packet.data(), packet.size()) == 301 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(Report, EscapesControlCharactersExceptItsOwnLineEnd) {
    const auto result = inChild([] {
        report("/srv/a\nkivctl: forged\x1b[2J");
        return 0;
    });
    EXPECT_EQ(result.errorOutput, "/srv/a\\x0akivctl: forged\\x1b[2J\n");
}

TEST(ReportLines, KeepsTheNewlinesBetweenLines) {
    const auto result = inChild([] {
        reportLines("alice: one\nbob: two\x07");
        return 0;
    });
    EXPECT_EQ(result.errorOutput, "alice: one\nbob: two\\x07\n");
}

TEST(Progress, IsSilentWithoutDebugMode) {
    const auto result = inChild([] {
        settings().debugMode = 0;
        progress("mounting /proc");
        return 0;
    });
    EXPECT_EQ(result.output + result.errorOutput, "");
}

TEST(Progress, GoesToStandardOutputInDebugMode) {
    const auto result = inChild([] {
        settings().debugMode = 1;
        progress("mounting /proc");
        return 0;
    });
    EXPECT_EQ(result.output, "mounting /proc\n");
    EXPECT_EQ(result.errorOutput, "");
}

TEST(Progress, EscapesControlCharacters) {
    const auto result = inChild([] {
        settings().debugMode = 1;
        progress("tmpdir: /srv/\n\xc2\x9b");
        return 0;
    });
    EXPECT_EQ(result.output, "tmpdir: /srv/\\x0a\\xc2\\x9b\n");
}

TEST(Progress, DoesNotWaitInABuffer) {
    const auto result = inChild([] {
        settings().debugMode = 1;
        progress("mounting /proc");
        ::_exit(0);  // loses what is buffered
        return 0;
    });
    EXPECT_EQ(result.output, "mounting /proc\n");
}

}  // namespace
