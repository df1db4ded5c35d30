// How the two ends of the command's terminal get from the process inside, which opens them, to the
// one outside, which relays.
#pragma once

#include <optional>

#include "util/file_descriptor.h"

/// A pair of connected sockets.
struct TerminalLink {
    /// The child's end gets the number `place`, which may be in use by the caller: everything from
    /// there on is closed before the command runs. Throws std::runtime_error.
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

/// Nothing when the process inside has ended without a terminal; it has said why. Throws
/// std::runtime_error.
std::optional<TerminalEnds> receiveTerminal(const FileDescriptor& parentEnd);
