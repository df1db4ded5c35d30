// The terminal control sequences that the program uses.
#pragma once

inline constexpr const char* kGreen = "\033[32m";
inline constexpr const char* kRed = "\033[31m";
inline constexpr const char* kReset = "\033[0m";
