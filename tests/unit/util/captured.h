// Captures the output of a test, and of processes that it starts, on a standard stream.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "util/file_descriptor.h"

/// Redirects `stream` to memory, from construction until text() or destruction.
class Captured {
public:
    /// STDOUT_FILENO or STDERR_FILENO
    explicit Captured(int stream)
        : captured(stream),
          previous(::fcntl(stream, F_DUPFD_CLOEXEC, 0)),
          memory(::memfd_create("captured", MFD_CLOEXEC)) {
        if (!previous.valid() || !memory.valid()) {
            std::abort();
        }
        flush();
        ::dup2(memory.get(), captured);
    }
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;
    ~Captured() { restore(); }

    /// Returns the captured text and restores the stream.
    std::string text() {
        restore();
        std::string written;
        std::array<char, 4096> buffer{};
        for (off_t offset = 0;;) {
            const ssize_t length = ::pread(memory.get(), buffer.data(), buffer.size(), offset);
            if (length <= 0) {
                return written;
            }
            written.append(buffer.data(), static_cast<std::size_t>(length));
            offset += length;
        }
    }

private:
    static void flush() {
        std::cout.flush();
        ::fflush(nullptr);
    }

    void restore() {
        if (previous.valid()) {
            flush();
            ::dup2(previous.get(), captured);
            previous.reset();
        }
    }

    int captured;
    FileDescriptor previous;
    FileDescriptor memory;
};
