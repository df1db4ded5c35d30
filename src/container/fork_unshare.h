// Creates the process that owns a container's new namespaces while they are connected and pinned.
#pragma once

#include <sys/types.h>

#include "util/file_descriptor.h"

/// Forks a child that unshares `flags` and then waits. Returns in both processes: the child's pid
/// in the parent, once the child has unshared or died; 0 in the child, once the parent has written
/// a byte to `syncFd` or closed it. The parent owns `syncFd`. Throws std::runtime_error when the
/// child cannot be created; `syncFd` is then -1. A child whose unshare fails prints the reason and
/// exits with 1.
///
/// The two meet through two pipes. The ready pipe (child writes) tells the parent that the
/// namespaces exist: the child closes its end after unshare, and a dying child closes it too, so
/// the parent's read cannot hang. The release pipe (parent writes) holds the child back while the
/// parent moves an interface into its network namespace and pins the namespaces through
/// /proc/PID/ns; a dying parent releases the child by the same end of file, and the kernel kills
/// the child soon after, because nobody would wait for its result.
///
/// A new mount namespace starts as a copy of this process's mounts, or of the mounts of
/// `startMounts`, an open mount namespace (the caller keeps it).
pid_t forkUnshare(int flags, int& syncFd, const FileDescriptor* startMounts = nullptr);

/// Throws std::runtime_error unless the child has its own namespaces. A child whose unshare failed
/// is still in the host's namespaces: no interface may be moved there, and nothing pinned from it.
void requireOwnNamespaces(pid_t child, int flags);

/// Releases the child by closing `sync` and waits for its end. Returns the status of waitpid(2).
int releaseAndWait(pid_t child, FileDescriptor& sync);
