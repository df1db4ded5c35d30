// Functions that fuzz targets use on libFuzzer's input.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the run with a finding, like assert(3), but in every build type.
inline void demand(bool holds, const char* what) {
    if (!holds) {
        std::fputs(what, stderr);
        std::fputs(" does not hold\n", stderr);
        std::abort();
    }
}

/// Drops standard error: bad input causes thousands of messages. libFuzzer writes its own to
/// another descriptor.
inline void silenceMessages() {
    std::cout.rdbuf(nullptr);
    std::cerr.rdbuf(nullptr);
}

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : rest(reinterpret_cast<const char*>(data), size) {}

    bool empty() const { return rest.empty(); }
    std::string all() const { return std::string(rest); }

    /// Removes and returns the text before the next separator; also removes the separator.
    std::string take(char separator) {
        const std::string piece(rest.substr(0, rest.find(separator)));
        rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
        return piece;
    }

private:
    std::string_view rest;
};

/// A file in memory.
class InputFile {
public:
    explicit InputFile(const std::string& content)
        : descriptor(::memfd_create("input", MFD_CLOEXEC)) {
        const auto length = static_cast<ssize_t>(content.size());
        demand(::write(descriptor, content.data(), content.size()) == length, "memfd_create(2)");
    }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile() { ::close(descriptor); }

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    int descriptor;
};
