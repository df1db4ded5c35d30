// The lines of a file. Not std::ifstream: with streams the C++ library also initialises all of its
// locales, which takes longer than the rest of `kivctl -v`.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "util/file_descriptor.h"

/// Owns and closes the file.
class LineReader {
public:
    static constexpr std::size_t kLargestBlock = 8192;

    /// Opens the file; errno is that of open(2) when `opened` is false afterwards. Reads
    /// blocks of `blockSize` bytes, at most kLargestBlock: small ones where the kernel writes the
    /// text while it is read, and the reader may not need all of it.
    explicit LineReader(const std::string& path, std::size_t blockSize = kLargestBlock);
    /// The same for a path below an open directory, openat(2).
    LineReader(int directory, const std::string& path);

    bool opened() const { return file.valid(); }

    /// Reads the next line into `line`, without its newline, which the last line need not have.
    /// False at the end of the file and when reading fails; a line that was only partly read is
    /// then dropped.
    bool next(std::string& line);

    /// The same without a copy. `line` is valid until the next call, and set only by a call that
    /// returns true.
    bool next(std::string_view& line);

    /// The errno of the failed read(2); 0 without a failure.
    int error() const { return failure; }

private:
    bool refill();

    FileDescriptor file;
    std::size_t block = kLargestBlock;  ///< bytes
    int failure = 0;
    std::array<char, kLargestBlock> buffer{};
    std::string_view pending;  ///< the part of the buffer that `next` has not returned yet
    std::string whole;         ///< the line that `next` returned last, if it spans two buffers
};
