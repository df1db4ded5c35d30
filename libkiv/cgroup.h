// The cgroup that accounts an account's processes. Its files are explained in the kernel's
// cgroup-v2 document.
#pragma once

#include <sys/types.h>

#include <string>

#include "util/file_descriptor.h"
#include "util/user_slice.h"

/// This directory exists where systemd runs, sd_booted(3).
inline constexpr const char* kServiceManager = "/run/systemd/system";

/// Moves this process into "user.slice/user-UID.slice/kiv" below `root`. A separate leaf is needed,
/// because cgroup v2 allows no process in a slice that has children, as it has under systemd; the
/// slice's figures include the leaf. Missing cgroups are created, and the pids and memory
/// controllers are enabled in the parents of the created ones. Throws std::runtime_error with the
/// file and the reason.
void enterCgroup(uid_t uid, const std::string& root = kCgroupRoot);

/// Opens the cgroup of that name below `parent`. A missing one is created, after the pids and
/// memory controllers have been enabled for the parent's children. Invalid, with errno set, when it
/// cannot be opened.
FileDescriptor openOrMakeCgroup(const FileDescriptor& parent, const std::string& name);

/// Opens or creates the leaf below an account's slice, like openOrMakeCgroup. Where
/// `serviceManager` does not exist nothing else limits accounts: a leaf that is created here then
/// gets a limit on the number of processes, which the administrator may change.
FileDescriptor openOrMakeLeaf(const FileDescriptor& slice,
                              const std::string& serviceManager = kServiceManager);

/// Sets that limit, pids.max. Without the pids controller it has no effect.
void limitProcesses(const FileDescriptor& leaf);
