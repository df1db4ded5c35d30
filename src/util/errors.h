// The two ways of saying that something went wrong: an exception that ends the command, and a line
// on standard error with which the command goes on.
#pragma once

#include <stdexcept>
#include <string>

/// The error of a failed system call: `text`, escaped as by report, followed by strerror(3) of
/// `error`. Save errno in a statement of its own before anything else runs: the order in which
/// arguments are evaluated differs between compilers.
std::runtime_error systemError(const std::string& text, int error);

/// strerror(3) as a string; the program has one thread.
std::string errorText(int error);

/// Writes `line` and a newline to standard error at once, so that lines of several processes on the
/// same terminal stay whole. Leaves errno as it was. Control characters are escaped: an account
/// chooses the names of its files, and must not forge lines or steer the administrator's terminal.
void report(const std::string& line);

/// As report, for each of the lines that newlines separate: an error with -a has one for each
/// account, and that of a host tool has the tool's own. Paths in `lines` are escaped already.
void reportLines(const std::string& lines);
