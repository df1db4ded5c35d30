// Measures the time and memory of one action in a separate process.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>

#include "../unit/util/child_process.h"

constexpr std::size_t kMebibyte = 1 << 20;
constexpr std::size_t kLineLength = 64 * kMebibyte;
constexpr std::size_t kManyLines = 1'000'000;
/// The slowest action takes about three seconds of them; one that is worse than linear takes
/// minutes.
constexpr double kMostSeconds = 15;

inline std::string repeated(const std::string& unit, std::size_t length) {
    std::string text;
    text.reserve(length + unit.size());
    while (text.size() < length) {
        text += unit;
    }
    return text;
}

/// A file in memory, which does not count as the process's memory.
class LargeFile {
public:
    explicit LargeFile(const std::string& content)
        : descriptor(::memfd_create("large", MFD_CLOEXEC)) {
        EXPECT_EQ(::write(descriptor, content.data(), content.size()),
                  static_cast<ssize_t>(content.size()));
    }
    LargeFile(const LargeFile&) = delete;
    LargeFile& operator=(const LargeFile&) = delete;
    ~LargeFile() { ::close(descriptor); }

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    int descriptor;
};

inline std::size_t peakMemory() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

/// Fails when the action takes more than kMostSeconds of processor time, more memory than six times
/// `bytes` and 200 a line, or ends its process. A std::runtime_error is an accepted result.
inline void expectModest(std::size_t bytes, std::size_t lines,
                         const std::function<void()>& action) {
    const std::size_t mostMemory = 6 * bytes + 200 * lines + 8 * kMebibyte;
    const auto result = inChild([&] {
        const rlimit limit{4096 * kMebibyte,
                           4096 * kMebibyte};  // other programs run beside the test
        ::setrlimit(RLIMIT_AS, &limit);
        const std::size_t before = peakMemory();
        const std::clock_t begin = std::clock();
        try {
            action();
        } catch (const std::runtime_error&) {
        }
        const auto seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
        const std::size_t memory = peakMemory() - before;
        std::printf("%.2f s, %zu MiB of %zu", seconds, memory / kMebibyte, mostMemory / kMebibyte);
        return seconds <= kMostSeconds && memory <= mostMemory ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0) << result.output;
}
