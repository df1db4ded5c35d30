// The capabilities of the program that opens a session, which is root and goes on for a while.
#pragma once

#include "container/container_handle.h"

/// Leaves this thread, and all that it becomes, the bounding set that the container library leaves
/// an account; empties the inheritable and the ambient set. The permitted and the effective set
/// stay: sshd hands a terminal over, su ends its child. The kernel empties them with the change to
/// the account's user. Call it behind joinContainer. Throws std::runtime_error.
void limitCapabilities(ContainerHandle& handle);

/// For a session that could not be opened: OpenSSH goes on without one, and its process for the
/// user would stay outside of the container. Without CAP_SETUID and CAP_SETGID no process becomes
/// the user. The bounding set loses them too: else root's next execve(2) brings them back. Ends
/// this process if they cannot be given up.
void giveUpChangeOfUser();
