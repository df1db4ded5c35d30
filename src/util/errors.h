// The two ways of saying that something went wrong: an exception that ends the command, and a line
// on standard error with which the command goes on.
#pragma once

#include <cerrno>
#include <concepts>
#include <stdexcept>
#include <string>
#include <string_view>

/// The error of a failed system call: `text`, escaped as by report, followed by strerror(3) of
/// `error`.
std::runtime_error systemError(const std::string& text, int error);

/// The same with errno and a text in pieces. They are joined only after errno has been read, so
/// that joining them cannot change it.
template <typename... Pieces>
requires(std::convertible_to<const Pieces&, std::string_view>&&...) std::runtime_error
    systemError(const Pieces&... pieces) {
    const int error = errno;
    return systemError((std::string() += ... += std::string_view(pieces)), error);
}

/// strerror(3) as a string; the program has one thread.
std::string errorText(int error);

/// Writes `line` and a newline to standard error at once, so that lines of several processes on the
/// same terminal stay whole. Leaves errno as it was. Control characters are escaped: an account
/// chooses the names of its files, and must not forge lines or steer the administrator's terminal.
void report(const std::string& line);

/// Reports the text in pieces followed by strerror(3) of errno, as systemError reads it.
template <typename... Pieces>
requires(std::convertible_to<const Pieces&, std::string_view>&&...) void reportSystemError(
    const Pieces&... pieces) {
    const int error = errno;
    report((std::string() += ... += std::string_view(pieces)) + errorText(error));
}

/// As report, for each of the lines that newlines separate: an error with -a has one for each
/// account, and that of a host tool has the tool's own. Paths in `lines` are escaped already.
void reportLines(const std::string& lines);
