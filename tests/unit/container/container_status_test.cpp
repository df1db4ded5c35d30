// Collects an account's figures. A temporary directory replaces the kernel's.
#include "container/container_status.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "../fs/temporary_directory.h"

namespace {

constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
constexpr auto kSmallest = std::numeric_limits<std::int64_t>::min();

/// An active container whose cgroup has no files.
class Collected : public testing::Test {
protected:
    Collected() {
        directory.write("/daemon@mnt", "");
        directory.makeDirectory("/slice");
    }

    void figure(const std::string& name, const std::string& content) {
        directory.write("/slice/" + name, content);
    }

    ContainerStatus collect() {
        ContainerStatus status(handle);
        collectStatus(status, directory.at("/daemon@mnt"), AT_FDCWD, directory.at("/slice"));
        return status;
    }

    /// The exception that collecting throws, with its text.
    template <typename Exception>
    std::string thrown() {
        try {
            collect();
        } catch (const Exception& error) {
            return error.what();
        }
        return "nothing";
    }

    const ContainerHandle handle{"daemon"};
    TemporaryDirectory directory;
};

TEST(ContainerStatus, BeginsWithNothingKnown) {
    const ContainerHandle handle("daemon");
    const ContainerStatus status(handle);
    EXPECT_EQ(status.handle, &handle);
    EXPECT_EQ(status.userName, "daemon");
    EXPECT_FALSE(status.active);
    EXPECT_FALSE(status.hasProcesses);
    EXPECT_FALSE(status.hasMemory);
    EXPECT_EQ(status.pidsMax, 0);
    EXPECT_EQ(status.pidsCurrent, 0);
    EXPECT_EQ(status.memoryHigh, 0);
    EXPECT_EQ(status.memoryCurrent, 0);
}

TEST(ContainerStatus, HoldsItsFieldsInTheirOrder) {
    const ContainerHandle handle("daemon");
    const ContainerStatus status(handle);
    const std::vector<const void*> fields = {
        &status.handle,       &status.userName,   &status.active,
        &status.hasProcesses, &status.pidsMax,    &status.pidsCurrent,
        &status.hasMemory,    &status.memoryHigh, &status.memoryCurrent};
    EXPECT_TRUE(std::is_sorted(fields.begin(), fields.end(), std::less<>()));
}

TEST(ContainerStatus, OfAnAccountWithoutNamespaceFileIsNotActive) {
    ContainerHandle handle("daemon");
    handle.userName = "no-such-container";
    ContainerStatus status(handle);
    collectStatus(status);
    EXPECT_FALSE(status.active);
}

TEST_F(Collected, NothingOfAContainerThatIsNotActive) {
    figure("pids.current", "5\n");
    figure("memory.current", "not looked at\n");
    ASSERT_EQ(::unlink(directory.at("/daemon@mnt").c_str()), 0);
    const ContainerStatus status = collect();
    EXPECT_FALSE(status.active);
    EXPECT_FALSE(status.hasProcesses);
    EXPECT_FALSE(status.hasMemory);
}

TEST_F(Collected, ActivityFollowsLinksAsStatDoes) {
    ASSERT_EQ(::unlink(directory.at("/daemon@mnt").c_str()), 0);
    ASSERT_EQ(::symlink("nowhere", directory.at("/daemon@mnt").c_str()), 0);
    EXPECT_FALSE(collect().active);
    directory.write("/nowhere", "");
    EXPECT_TRUE(collect().active);
}

TEST_F(Collected, OnlyActivityWithoutCgroup) {
    std::filesystem::remove_all(directory.at("/slice"));
    const ContainerStatus status = collect();
    EXPECT_TRUE(status.active);
    EXPECT_FALSE(status.hasProcesses);
    EXPECT_FALSE(status.hasMemory);
}

TEST_F(Collected, AllFiguresOfTheirOwnFiles) {
    figure("pids.current", "5\n");
    figure("pids.max", "20\n");
    figure("memory.current", "1023\n");
    figure("memory.high", "1024\n");
    figure("memory.max", "4096\n");
    const ContainerStatus status = collect();
    EXPECT_TRUE(status.active);
    EXPECT_TRUE(status.hasProcesses);
    EXPECT_EQ(status.pidsCurrent, 5);
    EXPECT_EQ(status.pidsMax, 20);
    EXPECT_TRUE(status.hasMemory);
    EXPECT_EQ(status.memoryCurrent, 1023);
    EXPECT_EQ(status.memoryHigh, 1024);
}

TEST_F(Collected, MaxIsNoLimit) {
    figure("pids.current", "5\n");
    figure("pids.max", "max\n");
    figure("memory.current", "7");
    figure("memory.high", "max");
    const ContainerStatus status = collect();
    EXPECT_EQ(status.pidsMax, -1);
    EXPECT_EQ(status.memoryHigh, -1);
}

TEST_F(Collected, AMissingOrEmptyLimitIsZero) {
    figure("pids.current", "5\n");
    figure("memory.current", "7\n");
    figure("memory.high", "");
    const ContainerStatus status = collect();
    EXPECT_TRUE(status.hasProcesses);
    EXPECT_EQ(status.pidsMax, 0);
    EXPECT_TRUE(status.hasMemory);
    EXPECT_EQ(status.memoryHigh, 0);
}

TEST_F(Collected, NoLimitWithoutItsFigure) {
    figure("pids.current", "\n5\n");
    figure("pids.max", "no number\n");
    figure("memory.high", "no number\n");
    const ContainerStatus status = collect();
    EXPECT_FALSE(status.hasProcesses);
    EXPECT_EQ(status.pidsMax, 0);
    EXPECT_FALSE(status.hasMemory);
    EXPECT_EQ(status.memoryHigh, 0);
}

TEST_F(Collected, MemoryAlsoWithoutProcesses) {
    figure("memory.current", "7\n");
    const ContainerStatus status = collect();
    EXPECT_FALSE(status.hasProcesses);
    EXPECT_TRUE(status.hasMemory);
    EXPECT_EQ(status.memoryCurrent, 7);
}

TEST_F(Collected, ANumberEndsAtTheFirstCharacterThatIsNoDigit) {
    figure("pids.current", " \t 5 tasks\n");
    figure("pids.max", "010\r\n");
    figure("memory.current", "0x10\n");
    figure("memory.high", "+9,5\n");
    const ContainerStatus status = collect();
    EXPECT_EQ(status.pidsCurrent, 5);
    EXPECT_EQ(status.pidsMax, 10);
    EXPECT_EQ(status.memoryCurrent, 0);
    EXPECT_EQ(status.memoryHigh, 9);
}

TEST_F(Collected, UnsignedNumbersAreKeptInSignedFields) {
    figure("pids.current", "9223372036854775807\n");
    figure("pids.max", "9223372036854775808\n");
    figure("memory.current", "18446744073709551615\n");
    figure("memory.high", "-5\n");
    const ContainerStatus status = collect();
    EXPECT_EQ(status.pidsCurrent, kLargest);
    EXPECT_EQ(status.pidsMax, kSmallest);
    EXPECT_EQ(status.memoryCurrent, -1);
    EXPECT_EQ(status.memoryHigh, -5);
}

struct Unreadable {
    const char* file;
    const char* content;
};

class UnreadableFigure : public Collected, public testing::WithParamInterface<Unreadable> {};

TEST_P(UnreadableFigure, IsNoRuntimeError) {
    figure("pids.current", "5\n");
    figure("memory.current", "7\n");
    figure(GetParam().file, GetParam().content);
    EXPECT_EQ(thrown<std::invalid_argument>(), "stoull");
}

INSTANTIATE_TEST_SUITE_P(
    Files, UnreadableFigure,
    testing::Values(Unreadable{"pids.current", "x5\n"}, Unreadable{"pids.current", " \n"},
                    Unreadable{"pids.current", "max\n"}, Unreadable{"pids.max", "max \n"},
                    Unreadable{"pids.max", "Max\n"}, Unreadable{"memory.current", "max\n"},
                    Unreadable{"memory.current", "-\n"}, Unreadable{"memory.high", "maximum\n"}));

TEST_F(Collected, ANumberThatDoesNotFitIsOutOfRange) {
    figure("pids.current", "18446744073709551616\n");
    EXPECT_EQ(thrown<std::out_of_range>(), "stoull");
}

TEST(FirstLine, ComesWithoutItsNewline) {
    const TemporaryDirectory directory;
    EXPECT_EQ(readFirstLine(AT_FDCWD, directory.write("/a", "one\ntwo\n")), "one");
    EXPECT_EQ(readFirstLine(AT_FDCWD, directory.write("/b", "one")), "one");
    EXPECT_EQ(readFirstLine(AT_FDCWD, directory.write("/c", " one\r\n")), " one\r");
    EXPECT_EQ(readFirstLine(AT_FDCWD, directory.write("/d", std::string(20'000, '1') + "\n")),
              std::string(20'000, '1'));
}

TEST(FirstLine, IsEmptyOfWhatHasNone) {
    const TemporaryDirectory directory;
    EXPECT_EQ(readFirstLine(AT_FDCWD, directory.write("/empty", "")), "");
    EXPECT_EQ(readFirstLine(AT_FDCWD, directory.write("/newline", "\ntwo\n")), "");
    EXPECT_EQ(readFirstLine(AT_FDCWD, directory.at("/missing")), "");
    EXPECT_EQ(readFirstLine(AT_FDCWD, directory.path), "");
    EXPECT_EQ(readFirstLine(AT_FDCWD, ""), "");
}

}  // namespace
