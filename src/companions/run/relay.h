// Relays between the command's terminal and the caller's standard input and output.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "companions/run/callers_terminal.h"
#include "companions/run/relay_signals.h"
#include "companions/run/terminal_link.h"
#include "util/file_descriptor.h"

/// Knows nothing of containers and needs no right. Whatever ends it, the caller's terminal is
/// restored first; with it the master is closed, which hangs the command's terminal up.
class Relay {
public:
    /// `commandProcess` is a child of this process and sends its terminal to `parentEnd`.
    /// blockRelaySignals comes before that child is made, so that its end is not missed.
    Relay(pid_t commandProcess, FileDescriptor parentEnd);

    /// Until the command has ended; returns its status, 128 + N when signal N ended it. Ends this
    /// process by the signal that it gets, and by SIGHUP when nobody reads the output any more or
    /// the caller's terminal is gone. Throws std::runtime_error when the terminal does not arrive.
    int run();

private:
    void waitAndHandle();
    void handleSignal();
    void acceptTerminal();
    void readInput();
    void endInput();
    void writeInput();
    void readOutput();
    void writeOutput();
    void collectStatus();
    void resume();
    void resize() const;
    void writeLeftOutput();
    [[noreturn]] void endBy(int signal);

    pid_t command;
    FileDescriptor socket;  ///< until the terminal has arrived
    RawTerminal caller;
    RelaySignals signals;
    TerminalEnds ends;   ///< the terminal is held open: a command may close its own and go on
    std::string input;   ///< read and not yet written
    std::string output;  ///< the same
    char lastInput = '\n';
    bool inputOpen = true;
    bool outputOpen = true;
    std::optional<int> status;
};
