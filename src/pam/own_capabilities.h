// The capabilities of the program that opens a session. It is root and runs on after that.
#pragma once

#include "container/container_handle.h"

/// Reduces this thread's bounding set to the one that the container library leaves an account, and
/// empties the inheritable and the ambient set; execve(2) and fork(2) keep that. The permitted and
/// the effective set stay, because sshd gives a terminal to the user and su signals its child. The
/// kernel empties them when the program changes to the account's user. Call it after joinContainer.
/// Throws std::runtime_error.
void limitCapabilities(ContainerHandle& handle);

/// For a session that could not be opened. OpenSSH continues without a session, and its process for
/// the user would run outside the container. This drops CAP_SETUID and CAP_SETGID, without which no
/// process can become the user; from the bounding set too, because root's next execve(2) would
/// restore them otherwise. Ends this process if they cannot be dropped.
void giveUpChangeOfUser();
