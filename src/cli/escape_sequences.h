// The terminal control sequences that the program uses.
#pragma once

#include <unistd.h>

inline constexpr const char* kGreen = "\033[32m";
inline constexpr const char* kRed = "\033[31m";
inline constexpr const char* kReset = "\033[0m";

/// The sequence when standard output is a terminal, else empty.
inline const char* onTerminal(const char* sequence) {
    return ::isatty(STDOUT_FILENO) != 0 ? sequence : "";
}
