// The output of kiv-list and kiv-check, which programs read: all of it, or a failure.
#pragma once

#include <cstdio>
#include <string>

#include "util/errors.h"
#include "util/output.h"

/// Writes to standard output at once. Throws std::runtime_error when it cannot be written: half of
/// a list must not pass for the whole.
inline void printWhole(const std::string& text) {
    print(text);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw systemError("cannot write to standard output: ");
    }
}
