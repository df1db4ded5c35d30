// The one lock of the runtime directory: who changes what containers are made of holds it
// exclusively, who enters a container holds it shared. It goes with its descriptor.
#pragma once

#include <chrono>

#include "util/file_descriptor.h"

/// Waits for the exclusive lock, as long as it takes. Invalid, with errno set, when the directory
/// is not there (ENOENT) or cannot be locked. No account's process can hold it: the directory has
/// mode 0700.
[[nodiscard]] FileDescriptor lockRuntimeDirectory();

/// The shared lock, waited for `atMost`; invalid, with errno set, when it could not be had:
/// ETIMEDOUT when somebody else held it all the time, ENOENT when there is no runtime directory
/// yet. Uses SIGALRM and the interval timer meanwhile, and leaves both at their defaults.
[[nodiscard]] FileDescriptor shareRuntimeDirectory(std::chrono::milliseconds atMost);
