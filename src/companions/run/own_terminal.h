// A terminal of the container's for the command of kiv-run, and the process outside that relays
// between it and the caller's terminal. The command never has the caller's: what the account leaves
// running cannot read what is typed there afterwards.
//
// | step                                     | who                      |
// |------------------------------------------|--------------------------|
// | a pair of sockets                        | TerminalLink             |
// | fork; the parent gives up its rights     | relayFromHere            |
// | join the container, become the account   | child                    |
// | open a terminal, send both its ends      | child: takeOwnTerminal   |
// | execute the command                      | child                    |
// | relay until the command has ended        | parent: Relay            |
#pragma once

#include "companions/run/terminal_link.h"

/// Forks. Returns in the child only, in a session of its own. The parent becomes nobody's process
/// without a right, relays, and ends with the command's status, 128 + N when signal N ended it.
/// Throws std::runtime_error in the caller's process when there is no child.
void relayFromHere(TerminalLink& link);

/// In the child, as the account and inside: makes a new terminal of the container's /dev/pts the
/// controlling one and descriptors 0 to 2; 2 stays when it is no terminal. Throws
/// std::runtime_error.
void takeOwnTerminal(TerminalLink& link);
