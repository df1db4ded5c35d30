// The terminal that kiv-run was called on, on its standard input and output.
#pragma once

#include <sys/ioctl.h>
#include <termios.h>

#include <optional>

/// Of standard input; nothing when that is no terminal.
std::optional<termios> callersMode();

/// The window's size, of standard input or else output; nothing when neither is a terminal.
std::optional<winsize> callersSize();

/// Makes standard input and output non-blocking where they are terminals or pipes, in open file
/// descriptions of their own: the caller's other processes keep theirs as they are. Where that
/// fails they stay blocking. Needs the host's /proc.
void stopBlocking();

/// Standard input while it is relayed: raw, so that each key goes to the command's terminal, which
/// makes signals and lines of them. Standard input that is no terminal is left alone.
class RawTerminal {
public:
    RawTerminal() : original(callersMode()) {}
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;
    ~RawTerminal() { restore(); }

    bool isTerminal() const { return original.has_value(); }

    /// In the background this stops the process until the caller's shell gives it the terminal.
    void enter();

    /// Back to the mode at construction, also in the background. Only after `enter`: later the mode
    /// is the caller's business.
    void restore();

private:
    std::optional<termios> original;
    bool isRaw = false;
};
