#include "companions/run/terminal_link.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace {

constexpr int kPlace = 300;

TerminalEnds pipeEnds() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    return {FileDescriptor(ends[1]), FileDescriptor(ends[0])};
}

TEST(TerminalLink, SendsBothEndsCloseOnExec) {
    const TerminalLink link(kPlace);
    sendTerminal(link.childEnd, pipeEnds());
    const auto received = receiveTerminal(link.parentEnd);
    ASSERT_TRUE(received.has_value());
    EXPECT_EQ(::fcntl(received->master.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(::fcntl(received->terminal.get(), F_GETFD), FD_CLOEXEC);
    char byte = 0;
    EXPECT_EQ(::write(received->master.get(), "x", 1), 1);
    EXPECT_EQ(::read(received->terminal.get(), &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
}

TEST(TerminalLink, GivesTheChildsEndItsNumberEvenIfThatIsInUse) {
    TerminalLink link(kPlace);
    EXPECT_EQ(link.childEnd.get(), kPlace);
    EXPECT_EQ(::fcntl(kPlace, F_GETFD), FD_CLOEXEC);
    // the number that the pair itself would get
    const int lowest = ::dup(STDIN_FILENO);
    ::close(lowest);
    const TerminalLink other(lowest);
    EXPECT_EQ(other.childEnd.get(), lowest);
    EXPECT_GT(other.parentEnd.get(), lowest);
    sendTerminal(other.childEnd, pipeEnds());
    EXPECT_TRUE(receiveTerminal(other.parentEnd).has_value());
}

TEST(TerminalLink, ReceivesNothingFromAChildThatEndedWithoutATerminal) {
    TerminalLink link(kPlace);
    link.childEnd.reset();
    EXPECT_FALSE(receiveTerminal(link.parentEnd).has_value());
}

TEST(TerminalLink, RefusesAMessageWithoutATerminal) {
    const TerminalLink link(kPlace);
    ASSERT_EQ(::write(link.childEnd.get(), "x", 1), 1);
    EXPECT_THROW(receiveTerminal(link.parentEnd), std::runtime_error);
}

TEST(TerminalLink, SendsNothingToAProcessThatIsGone) {
    TerminalLink link(kPlace);
    link.parentEnd.reset();
    EXPECT_THROW(sendTerminal(link.childEnd, pipeEnds()), std::runtime_error);
}

}  // namespace
