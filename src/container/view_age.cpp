#include "container/view_age.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <ctime>

#include "container/namespaces.h"

std::optional<Instant> pinnedAt(const std::string& namespaceFile) {
    return mayBeNamespace(namespaceFile) ? changedAt(namespaceFile) : std::nullopt;
}

std::optional<Instant> changedAt(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return Instant(std::chrono::seconds(status.st_ctim.tv_sec) +
                   std::chrono::nanoseconds(status.st_ctim.tv_nsec));
}

bool haveChangedSince(Instant when, std::initializer_list<const char*> paths) {
    return std::any_of(paths.begin(), paths.end(), [when](const char* path) {
        const auto changed = changedAt(path);
        return changed && *changed > when;
    });
}

std::string utcText(Instant when) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(
        std::chrono::time_point_cast<std::chrono::system_clock::duration>(when));
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}
