// Makes the process that owns a container's new namespaces while they are wired and pinned.
#pragma once

#include <sys/types.h>

#include "util/file_descriptor.h"

/// Forks a child that unshares `flags` and then waits. Returns in both processes: the child's pid
/// in the parent, once the child has unshared or died; 0 in the child, once the parent has written
/// a byte to `syncFd` or closed it. The parent owns `syncFd`. Throws std::runtime_error when there
/// is no child; `syncFd` is then -1. A child without new namespaces says why and ends with 1.
///
/// The two meet through two pipes. The ready pipe (child writes) tells the parent that the
/// namespaces exist: the child closes its end after unshare, and a dying child closes it too, so
/// the parent's read cannot hang. The release pipe (parent writes) holds the child back while the
/// parent moves an interface into its network namespace and pins the namespaces through
/// /proc/PID/ns; a dying parent releases the child by the same end of file, and the kernel kills
/// the child soon after: nobody would wait for what it does.
///
/// A new mount namespace starts as a copy of this process's mounts, or of those of `startMounts`, a
/// mount namespace that is open.
pid_t forkUnshare(int flags, int& syncFd, const FileDescriptor* startMounts = nullptr);

/// A child whose unshare failed is in the host's namespaces: nothing may be wired to or pinned from
/// it. Throws std::runtime_error.
void requireOwnNamespaces(pid_t child, int flags);

/// Lets the child go on by closing `sync`, and waits for its end. The status is that of waitpid(2).
int releaseAndWait(pid_t child, FileDescriptor& sync);
