// The lines of a file. Not std::ifstream: with its streams the C++ library brings all of its
// locales along, whose set-up at every start took longer than the rest of `kivctl -v`.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "util/file_descriptor.h"

class LineReader {
public:
    /// Opens the file; errno is that of open(2) when `opened` is false afterwards.
    explicit LineReader(const std::string& path);
    /// The same for a path below an open directory, openat(2).
    LineReader(int directory, const std::string& path);

    bool opened() const { return file.valid(); }

    /// Puts the next line without its newline into `line`; the last one needs none. False when
    /// there is none left, and when reading fails: what was read of that line is not delivered.
    bool next(std::string& line);

    /// The errno of the read(2) that failed, 0 when none has.
    int error() const { return failure; }

private:
    bool refill();

    FileDescriptor file;
    int failure = 0;
    std::array<char, 8192> buffer{};
    std::string_view pending;  ///< what of the buffer is not delivered yet
};
