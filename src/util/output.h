// The standard streams, through the C library's buffers. Not std::cout: see util/line_reader.h.
// Nothing tells of text that cannot be written: a full disk behind them keeps no container from
// being started or stopped.
#pragma once

#include <string>
#include <string_view>

/// Writes to standard output: line by line on a terminal, else when there is a buffer full of it,
/// at `flushOutput` and at the end of the program.
void print(std::string_view text);

void flushOutput();

/// Writes to standard error at once, so that a line of one call stays whole among those of others.
void printError(std::string_view text);

/// From now on nothing is written. For a module in another program: the standard streams are that
/// program's, and may be a connection.
void silenceOutput();

/// Writes `line`, escaped as by report, and a newline to standard output and flushes, when -d was
/// given.
void progress(const std::string& line);
