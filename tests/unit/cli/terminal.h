// Runs a child process with one of its standard streams on a terminal.
#pragma once

#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <string>

#include "../util/child_process.h"

struct TerminalResult {
    std::string terminal;  ///< the output on the terminal
    ChildResult child;     ///< the other output
};

/// Runs `body` in a child whose `stream` is a terminal. Its output must fit into the terminal's
/// buffer of 4 KiB.
inline TerminalResult onTerminal(int stream, const std::function<int()>& body) {
    int master = -1;
    int slave = -1;
    termios raw{};
    ::cfmakeraw(&raw);  // a newline stays one character
    EXPECT_EQ(::openpty(&master, &slave, nullptr, &raw, nullptr), 0);
    TerminalResult result;
    result.child = inChild([&] {
        ::dup2(slave, stream);
        return body();
    });
    ::close(slave);
    std::array<char, 4096> buffer{};
    // ends with EIO when everything is read, because the other end is closed
    for (ssize_t length = 0; (length = ::read(master, buffer.data(), buffer.size())) > 0;) {
        result.terminal.append(buffer.data(), static_cast<std::size_t>(length));
    }
    ::close(master);
    return result;
}
