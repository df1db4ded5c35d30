// The cgroup that an account's processes are counted in.
#pragma once

#include <sys/types.h>

#include <string>

#include "util/file_descriptor.h"
#include "util/user_slice.h"

/// Exists where systemd runs, sd_booted(3).
inline constexpr const char* kServiceManager = "/run/systemd/system";

/// Moves this process into "user.slice/user-UID.slice/kiv" below `root`. Where the slice has
/// children, as under systemd, cgroup v2 allows no process in the slice itself, hence the leaf of
/// our own; the slice counts it all the same. What is missing is made, and the controllers that
/// count processes and memory are asked for above what is made. Throws std::runtime_error with the
/// file and the reason.
void enterCgroup(uid_t uid, const std::string& root = kCgroupRoot);

/// The cgroup of that name below `parent`. When it is missing it is made, after the parent has been
/// asked to count the processes and memory of its children. Invalid, with errno set, when it cannot
/// be opened.
FileDescriptor openOrMakeCgroup(const FileDescriptor& parent, const std::string& name);

/// The leaf below an account's slice, as openOrMakeCgroup. Where `serviceManager` does not exist
/// nothing else limits accounts: a leaf that is made here then has a limit of processes, which the
/// host's administrator may change.
FileDescriptor openOrMakeLeaf(const FileDescriptor& slice,
                              const std::string& serviceManager = kServiceManager);

/// Sets that limit. A host without the controller has none.
void limitProcesses(const FileDescriptor& leaf);
