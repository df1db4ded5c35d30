#include "util/line_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <string_view>
#include <vector>

#include "../fs/temporary_directory.h"
#include "child_process.h"
#include "util/file_descriptor.h"

namespace {

using Lines = std::vector<std::string>;

class LinesOfAFile : public testing::Test {
protected:
    Lines linesOf(const std::string& content) {
        LineReader file(directory.write("/file", content));
        EXPECT_TRUE(file.opened());
        Lines lines;
        for (std::string line; file.next(line);) {
            lines.push_back(line);
        }
        EXPECT_EQ(file.error(), 0);
        EXPECT_EQ(viewsOf(content), lines);
        return lines;
    }

    Lines viewsOf(const std::string& content) {
        LineReader file(directory.write("/file", content));
        Lines lines;
        for (std::string_view line; file.next(line);) {
            lines.emplace_back(line);
        }
        return lines;
    }

    TemporaryDirectory directory;
};

TEST_F(LinesOfAFile, AreNoneWhenItIsEmpty) {
    EXPECT_EQ(linesOf(""), Lines{});
}

TEST_F(LinesOfAFile, ComeWithoutTheirNewlines) {
    EXPECT_EQ(linesOf("a\nb c\n"), (Lines{"a", "b c"}));
}

TEST_F(LinesOfAFile, NeedNoNewlineAtTheEnd) {
    EXPECT_EQ(linesOf("a\nb"), (Lines{"a", "b"}));
}

TEST_F(LinesOfAFile, MayBeEmpty) {
    EXPECT_EQ(linesOf("\n\na\n\n"), (Lines{"", "", "a", ""}));
}

TEST_F(LinesOfAFile, MayHoldNulBytesAndCarriageReturns) {
    EXPECT_EQ(linesOf(std::string("a\0b\r\n", 5)), (Lines{std::string("a\0b\r", 4)}));
}

TEST_F(LinesOfAFile, AreWholeAcrossTheBuffersBlocks) {
    for (const std::size_t length : {8190U, 8191U, 8192U, 8193U, 16383U, 16384U, 100'000U}) {
        const std::string line(length, 'x');
        EXPECT_EQ(linesOf(line), Lines{line}) << length;
        EXPECT_EQ(linesOf(line + "\n"), Lines{line}) << length;
        EXPECT_EQ(linesOf(line + "\n\n" + line + "\ny"), (Lines{line, "", line, "y"})) << length;
    }
}

TEST_F(LinesOfAFile, AreReadOneBlockAtATime) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    const FileDescriptor out(ends[0]);
    const FileDescriptor in(ends[1]);
    ASSERT_EQ(::write(in.get(), "a\nb\nc\nd\n", 8), 8);
    LineReader file("/proc/self/fd/" + std::to_string(out.get()), 3);
    std::string line;
    EXPECT_TRUE(file.next(line));
    int left = 0;
    ASSERT_EQ(::ioctl(out.get(), FIONREAD, &left), 0);
    EXPECT_EQ(left, 5);
    EXPECT_TRUE(file.next(line));
    EXPECT_EQ(line, "b");
}

TEST_F(LinesOfAFile, ReplaceTheCallersText) {
    LineReader file(directory.write("/file", "a\n"));
    std::string line = "earlier";
    EXPECT_TRUE(file.next(line));
    EXPECT_EQ(line, "a");
    EXPECT_FALSE(file.next(line));
    EXPECT_EQ(line, "");
    EXPECT_FALSE(file.next(line));
}

TEST(LineReaderOfAMissingFile, SetsErrno) {
    const LineReader file("/nowhere/at/all");
    const int error = errno;
    EXPECT_FALSE(file.opened());
    EXPECT_EQ(error, ENOENT);
}

TEST(LineReaderOfADirectory, OpensItAndFailsToReadIt) {
    LineReader file("/");
    EXPECT_TRUE(file.opened());
    std::string line;
    EXPECT_FALSE(file.next(line));
    EXPECT_EQ(file.error(), EISDIR);
}

TEST(LineReaderOfABrokenFile, ReportsTheErrnoOfTheFailedRead) {
    LineReader file("/proc/self/mem");  // nothing is mapped at its beginning
    ASSERT_TRUE(file.opened());
    std::string line;
    EXPECT_FALSE(file.next(line));
    EXPECT_EQ(file.error(), EIO);
}

TEST_F(LinesOfAFile, SurviveSignals) {
    const std::string path = directory.at("/fifo");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const auto result = inChild([&path] {
        struct sigaction action {};
        action.sa_handler = [](int /*signal*/) {};
        ::sigaction(SIGALRM, &action, nullptr);  // without SA_RESTART: read(2) ends with EINTR
        const pid_t reader = ::getpid();
        if (::fork() == 0) {
            const FileDescriptor end(::open(path.c_str(), O_WRONLY));
            ::usleep(20'000);
            ::kill(reader, SIGALRM);
            ::usleep(20'000);
            const bool written = ::write(end.get(), "whole\n", 6) == 6;
            ::_exit(written ? 0 : 1);
        }
        LineReader file(path);
        std::string line;
        const bool delivered = file.next(line);
        return delivered && line == "whole" ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

}  // namespace
