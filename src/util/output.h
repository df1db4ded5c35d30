// The standard streams, through the C library's buffers. Not std::cout: see util/line_reader.h.
// Write errors are ignored: a full disk behind these streams must not keep a container from being
// started or stopped.
#pragma once

#include <string>
#include <string_view>

/// Writes to standard output: line by line on a terminal, otherwise when the buffer is full, at
/// `flushOutput` and at the end of the program.
void print(std::string_view text);

void flushOutput();

/// Writes to standard error without buffering, so that a line written by one call does not mix with
/// other processes' lines.
void printError(std::string_view text);

/// From now on these functions write nothing. For a module inside another program, whose standard
/// streams may be a network connection.
void silenceOutput();

/// With -d: writes `line`, with control characters escaped, and a newline to standard output, and
/// flushes.
void progress(const std::string& line);
