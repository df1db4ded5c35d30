// What a fuzz target makes of the bytes that libFuzzer hands it.
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

/// Ends the run with a finding: assert(3) that no build type turns off.
inline void demand(bool holds, const char* what) {
    if (!holds) {
        std::fputs(what, stderr);
        std::fputs(" does not hold\n", stderr);
        std::abort();
    }
}

/// Messages about bad input are expected by the thousand; libFuzzer's own go another way.
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

    /// What stands before the next separator, which is taken too.
    std::string take(char separator) {
        const std::string piece(rest.substr(0, rest.find(separator)));
        rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
        return piece;
    }

private:
    std::string_view rest;
};

/// A file that is never on a disk.
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
