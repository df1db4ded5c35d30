#include "fs/path_expansion.h"

#include <glob.h>

#include <cerrno>
#include <climits>

#include "util/errors.h"
#include "util/scope_guard.h"

namespace {

/// Not a documented result of glob(3); some C libraries return it for a failed call.
constexpr int kGlobFailed = -1;

void appendMatches(const std::string& pattern, std::list<std::string>& paths) {
    if (pattern.size() >= PATH_MAX) {
        // glob(3) recurses for each "/", each time with a copy of the text before it on the stack
        report("glob(" + pattern + ") failed: " + errorText(ENAMETOOLONG));
        return;
    }
    glob_t matches{};
    const int result = ::glob(pattern.c_str(), 0, nullptr, &matches);
    const int error = errno;
    const ScopeGuard release([&matches] { ::globfree(&matches); });
    if (result == kGlobFailed) {
        report("glob(" + pattern + ") failed: " + errorText(error));
        return;
    }
    // GLOB_NOMATCH and GLOB_ABORTED are not errors: the matches found so far count
    for (std::size_t i = 0; i < matches.gl_pathc; ++i) {
        paths.emplace_back(matches.gl_pathv[i]);
    }
}

}  // namespace

std::list<std::string> expandPaths(const std::string& base,
                                   const std::list<std::string>& patterns) {
    std::list<std::string> paths;
    for (const std::string& pattern : patterns) {
        if (pattern.find('*') == std::string::npos) {
            paths.push_back(pattern);
        } else {
            appendMatches(base.empty() ? pattern : base + "/" + pattern, paths);
        }
    }
    return paths;
}
