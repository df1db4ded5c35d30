// The signals of the process that relays between two terminals. It reads them from a descriptor,
// signalfd(2), so that it can restore the caller's terminal before it ends or stops.
#pragma once

#include <optional>

#include "util/file_descriptor.h"

/// Blocks the signals that RelaySignals reads: all except those of faults such as SIGSEGV, SIGTTIN,
/// SIGTTOU, SIGURG, and those that the caller ignores, so that nohup(1) works. Throws
/// std::runtime_error.
void blockRelaySignals();

class RelaySignals {
public:
    /// Throws std::runtime_error.
    RelaySignals();

    /// Becomes readable with each signal.
    int descriptor() const { return queue.get(); }

    /// Takes the next signal; nothing when none is pending.
    std::optional<int> next();

private:
    FileDescriptor queue;
};

/// Takes the signal's default action. Returns if that does not end the process; after a stop such
/// as SIGTSTP, once the process is continued.
void obey(int signal);
