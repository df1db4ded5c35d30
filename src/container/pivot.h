// Makes a prepared mount the root of this mount namespace and detaches everything else,
// pivot_root(2).
#pragma once

#include <string>

#include "util/file_descriptor.h"

/// Pivots into the mount at `newRootPath`, detaches the old root and leaves the process at "/".
/// `expectedRoot` is that mount, opened when it was created: afterwards "/" must be mounted exactly
/// once and be that mount, else the old root is detached again. Throws std::runtime_error.
void pivotInto(const std::string& newRootPath, const FileDescriptor& expectedRoot);
