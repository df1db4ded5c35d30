// What the programs beside kivctl print: either all of it is written, or the program fails.
#pragma once

#include <cstdio>
#include <string>

#include "util/errors.h"
#include "util/output.h"

/// Writes to standard output and flushes it. Throws std::runtime_error when that fails: half of a
/// list must not pass for the whole.
inline void printWhole(const std::string& text) {
    print(text);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        throw systemError("cannot write to standard output: ");
    }
}
