// Sends the two ends of the command's terminal from the process inside, which opens them, to the
// process outside, which relays.
#pragma once

#include <optional>

#include "util/file_descriptor.h"

/// A pair of connected sockets.
struct TerminalLink {
    /// The child's end gets the descriptor number `place`, even if the caller uses it: all
    /// descriptors from there on are closed before the command runs. Throws std::runtime_error.
    explicit TerminalLink(int place);

    FileDescriptor parentEnd;
    FileDescriptor childEnd;
};

struct TerminalEnds {
    FileDescriptor master;
    FileDescriptor terminal;
};

/// Throws std::runtime_error when the process outside is gone.
void sendTerminal(const FileDescriptor& childEnd, const TerminalEnds& ends);

/// Waits for the ends. Nothing when the process inside has ended without sending them; it has
/// printed the reason. Throws std::runtime_error.
std::optional<TerminalEnds> receiveTerminal(const FileDescriptor& parentEnd);
