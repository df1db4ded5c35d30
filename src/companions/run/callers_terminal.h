// The caller's terminal: the standard input and output of kiv-run.
#pragma once

#include <sys/ioctl.h>
#include <termios.h>

#include <optional>

/// The terminal mode of standard input; nothing when it is not a terminal.
std::optional<termios> callersMode();

/// The window size in characters, of standard input or else of output; nothing when neither is a
/// terminal.
std::optional<winsize> callersSize();

/// Makes standard input and output non-blocking where they are terminals or pipes. They are opened
/// again for that, so that the caller's other processes keep blocking ones. When that fails they
/// stay blocking. Needs the host's /proc.
void stopBlocking();

/// The mode of standard input while it is relayed. In raw mode each key goes to the command's
/// terminal, which turns keys into signals and lines. Does nothing when standard input is not a
/// terminal.
class RawTerminal {
public:
    RawTerminal() : original(callersMode()) {}
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;
    ~RawTerminal() { restore(); }

    bool isTerminal() const { return original.has_value(); }

    /// Switches to raw mode. In the background this stops the process until the caller's shell
    /// gives it the terminal.
    void enter();

    /// Restores the mode at construction, also in the background. Does nothing before `enter` and
    /// after an earlier `restore`: the mode then belongs to the caller.
    void restore();

private:
    std::optional<termios> original;
    bool isRaw = false;
};
