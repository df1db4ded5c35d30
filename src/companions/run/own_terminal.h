// A terminal of the container's for the command of kiv-run, and the process outside that relays
// between it and the caller's terminal. The command never has the caller's: what the account leaves
// running cannot read what is typed there afterwards.
//
// | step                                 | who                      |
// |--------------------------------------|--------------------------|
// | a pair of sockets                    | TerminalLink             |
// | fork; the parent gives up its rights | relayFromHere            |
// | join the container, become account   | child                    |
// | open the terminal, send its master   | child: takeOwnTerminal   |
// | execute the command                  | child                    |
// | relay until the command has ended    | parent                   |
#pragma once

#include "util/file_descriptor.h"

/// The sockets that the terminal's master travels through.
struct TerminalLink {
    /// The child's end gets the number `place`, which may be in use by the caller: everything from
    /// there on is closed before the command runs. Throws std::runtime_error.
    explicit TerminalLink(int place);

    FileDescriptor parentEnd;
    FileDescriptor childEnd;
};

/// Forks. Returns in the child only, in a session of its own. The parent becomes nobody's process
/// without a right, relays, and ends with the command's status, 128 + N when signal N ended it.
/// Throws std::runtime_error in the caller's process when there is no child.
void relayFromHere(TerminalLink& link);

/// In the child, as the account and inside: makes a new terminal of the container's /dev/pts the
/// controlling one and descriptors 0 to 2; 2 stays when it is no terminal. Throws
/// std::runtime_error.
void takeOwnTerminal(TerminalLink& link);
