// The signals of the process that relays between two terminals. It reads them as it reads input, so
// that it can restore the caller's terminal before it ends or stops.
#pragma once

#include <optional>

#include "util/file_descriptor.h"

/// Blocks all signals but those of faults and of the terminal's background, and those that the
/// caller ignores: nohup(1) keeps its meaning. Signals from now on wait for RelaySignals.
/// Throws std::runtime_error.
void blockRelaySignals();

class RelaySignals {
public:
    /// Throws std::runtime_error.
    RelaySignals();

    /// Becomes readable with each signal.
    int descriptor() const { return queue.get(); }

    /// Takes the next one; nothing when none is waiting.
    std::optional<int> next();

private:
    FileDescriptor queue;
};

/// Does what the signal does by default. Returns when that has not ended the process: after SIGTSTP
/// once the process is continued.
void obey(int signal);
