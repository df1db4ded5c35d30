#include "companions/run/callers_terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>

#include "../../cli/terminal.h"
#include "../../util/child_process.h"
#include "util/file_descriptor.h"

namespace {

bool isCanonical() {
    const auto mode = callersMode();
    return mode && (mode->c_lflag & ICANON) != 0;
}

void setCanonical() {
    auto mode = callersMode();
    mode->c_lflag |= ICANON;
    ::tcsetattr(STDIN_FILENO, TCSANOW, &*mode);
}

TEST(RawTerminal, IsRestoredByItsDestructor) {
    const auto result = onTerminal(STDIN_FILENO, [] {
        setCanonical();
        {
            RawTerminal terminal;
            terminal.enter();
            if (!terminal.isTerminal() || isCanonical()) {
                return 1;
            }
        }
        return isCanonical() ? 0 : 2;
    });
    EXPECT_EQ(outcome(result.child), 0);
}

TEST(RawTerminal, IsNotRestoredBeforeItIsEntered) {
    const auto result = onTerminal(STDIN_FILENO, [] {
        RawTerminal terminal;  // not canonical
        setCanonical();
        terminal.restore();
        return isCanonical() ? 0 : 1;
    });
    EXPECT_EQ(outcome(result.child), 0);
}

TEST(RawTerminal, LeavesAPipeAlone) {
    EXPECT_EQ(outcome(inChild([] {
                  std::array<int, 2> ends{};
                  ::pipe2(ends.data(), O_CLOEXEC);
                  ::dup2(ends[0], STDIN_FILENO);
                  RawTerminal terminal;
                  terminal.enter();
                  return terminal.isTerminal() || callersMode() ? 1 : 0;
              })),
              0);
}

TEST(StopBlocking, DoesNotChangeAPipeForItsOtherUsers) {
    EXPECT_EQ(outcome(inChild([] {
                  std::array<int, 2> ends{};
                  ::pipe2(ends.data(), O_CLOEXEC);
                  ::dup2(ends[1], STDOUT_FILENO);
                  stopBlocking();
                  const bool own = (::fcntl(STDOUT_FILENO, F_GETFL) & O_NONBLOCK) != 0;
                  const bool others = (::fcntl(ends[1], F_GETFL) & O_NONBLOCK) != 0;
                  return own && !others ? 0 : 1;
              })),
              0);
}

TEST(StopBlocking, KeepsTheOffsetOfAFile) {
    EXPECT_EQ(outcome(inChild([] {
                  const FileDescriptor file(::memfd_create("output", MFD_CLOEXEC));
                  ::dup2(file.get(), STDOUT_FILENO);
                  ::write(STDOUT_FILENO, "before", 6);
                  stopBlocking();
                  return ::lseek(STDOUT_FILENO, 0, SEEK_CUR) == 6 ? 0 : 1;
              })),
              0);
}

}  // namespace
