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

/// Knows nothing about containers and needs no rights. At every end the caller's terminal is
/// restored first. The end also closes the master, which hangs up the command's terminal.
class Relay {
public:
    /// `commandProcess` is a child of this process and sends its terminal to `parentEnd`. Call
    /// blockRelaySignals before creating that child, so that SIGCHLD is not missed.
    Relay(pid_t commandProcess, FileDescriptor parentEnd);

    /// Relays until the command has ended. Returns its exit status, 128 + N when signal N ended it.
    /// Ends this process by the signal that it receives, and by SIGHUP when nobody reads the output
    /// any more or the caller's terminal is gone. Throws std::runtime_error when the terminal does
    /// not arrive.
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
    TerminalEnds ends;   ///< `terminal` stays open: the command may close its own and continue
    std::string input;   ///< read from the caller, not yet written
    std::string output;  ///< read from the command, not yet written
    char lastInput = '\n';
    bool inputOpen = true;
    bool outputOpen = true;
    std::optional<int> status;
};
