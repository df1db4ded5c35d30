// Makes a prepared directory tree the root of this mount namespace, and nothing else left in it.
#pragma once

#include <string>

#include "util/file_descriptor.h"

/// Pivots into the mount at `newRootPath` and detaches the old root. `expectedRoot` is that mount
/// as it was when it was made: afterwards "/" must be there once and be it, else the old root is
/// detached again. Leaves the process at "/". Throws std::runtime_error.
void pivotInto(const std::string& newRootPath, const FileDescriptor& expectedRoot);
