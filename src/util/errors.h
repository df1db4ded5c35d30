// The two ways to report a failure: an exception that ends the command, and a line on standard
// error after which the command continues.
#pragma once

#include <cerrno>
#include <concepts>
#include <stdexcept>
#include <string>
#include <string_view>

/// The exception for a failed system call: `text`, with control characters escaped like by report,
/// followed by strerror(3) of `error`. Write `throw` in front of it.
std::runtime_error systemError(const std::string& text, int error);

/// The same with errno and a text in pieces. errno is read before the pieces are joined, because
/// joining may change it.
template <typename... Pieces>
requires(std::convertible_to<const Pieces&, std::string_view>&&...) std::runtime_error
    systemError(const Pieces&... pieces) {
    const int error = errno;
    return systemError((std::string() += ... += std::string_view(pieces)), error);
}

/// The text of strerror(3), which is not thread-safe: the program has one thread.
std::string errorText(int error);

/// Writes `line` and a newline to standard error in one call, so that the lines of several
/// processes on one terminal do not mix. Preserves errno. Control characters are escaped: an
/// account chooses the names of its files and must not be able to forge lines or control the
/// administrator's terminal.
void report(const std::string& line);

/// Reports the pieces, followed by strerror(3) of errno, which is read first as in systemError.
template <typename... Pieces>
requires(std::convertible_to<const Pieces&, std::string_view>&&...) void reportSystemError(
    const Pieces&... pieces) {
    const int error = errno;
    report((std::string() += ... += std::string_view(pieces)) + errorText(error));
}

/// Like report, for a text of several lines: an error with -a has one line per account, and an
/// error of a host tool contains the tool's own lines. Newlines in paths must already be escaped.
void reportLines(const std::string& lines);
