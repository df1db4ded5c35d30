// A terminal inside the container for the command of kiv-run, and the process outside that relays
// between it and the caller's terminal. The command never gets the caller's terminal: processes
// that the account leaves running could read what is typed there later.
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

/// Forks, and returns only in the child, in a new session. The parent changes to the user nobody
/// without any rights, relays, and exits with the command's status, 128 + N when signal N ended it.
/// Throws std::runtime_error in the parent when it cannot fork.
void relayFromHere(TerminalLink& link);

/// Runs in the child, as the account and inside the container. Opens a new terminal of the
/// container's /dev/pts, makes it the controlling terminal and puts it on descriptors 0 to 2;
/// descriptor 2 stays as it is when it is not a terminal. Sends both ends to the parent. Throws
/// std::runtime_error.
void takeOwnTerminal(TerminalLink& link);
