// A file of many lines for one benchmark, in memory.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>

class LargeFile {
public:
    LargeFile(int lines, const std::string& begin, const std::function<std::string(int)>& line)
        : descriptor(::memfd_create("bench", MFD_CLOEXEC)) {
        std::string content = begin;
        for (int number = 0; number < lines; ++number) {
            content += line(number) + "\n";
        }
        if (::write(descriptor, content.data(), content.size()) !=
            static_cast<ssize_t>(content.size())) {
            throw std::runtime_error("cannot write a file in memory");
        }
    }
    LargeFile(const LargeFile&) = delete;
    LargeFile& operator=(const LargeFile&) = delete;
    ~LargeFile() { ::close(descriptor); }

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    int descriptor;
};
