#include "companions/list/processor_time.h"

#include <fcntl.h>

#include <charconv>
#include <string_view>
#include <system_error>

#include "container/container_status.h"

namespace {

constexpr std::string_view kUsageKey = "usage_usec";
constexpr double kMicroseconds = 1e6;

std::optional<double> number(std::string_view text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() ? std::optional(value) : std::nullopt;
}

/// Parses the first line of cpu.stat, "usage_usec N".
std::optional<double> usedTime(std::string_view line) {
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos || line.substr(0, blank) != kUsageKey) {
        return std::nullopt;
    }
    const auto microseconds = number(line.substr(blank + 1));
    return microseconds ? std::optional(*microseconds / kMicroseconds) : std::nullopt;
}

/// Parses cpu.max, "QUOTA PERIOD", in microseconds. QUOTA is "max" without a limit.
std::optional<double> processors(std::string_view line) {
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos) {
        return std::nullopt;
    }
    const auto quota = number(line);
    const auto period = number(line.substr(blank + 1));
    return quota && period && *period > 0 ? std::optional(*quota / *period) : std::nullopt;
}

}  // namespace

ProcessorTime processorTimeOf(const std::string& cgroup) {
    return {usedTime(readFirstLine(AT_FDCWD, cgroup + "/cpu.stat")),
            processors(readFirstLine(AT_FDCWD, cgroup + "/cpu.max"))};
}
