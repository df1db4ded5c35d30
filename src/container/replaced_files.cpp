#include "container/replaced_files.h"

#include <sys/stat.h>

#include <algorithm>
#include <iterator>

#include "util/line_reader.h"
#include "util/word_reader.h"

namespace {

std::string_view withoutZeros(std::string_view address) {
    return address.substr(std::min(address.find_first_not_of('0'), address.size()));
}

/// After dpkg(1) has replaced a program or library, the old file has no link left. In a container
/// maps does not show "(deleted)" for it, because the overlay still has the name cached.
bool isReplaced(const std::string& process, std::string_view range, std::string_view path) {
    constexpr std::string_view kInstalled[] = {"/usr/", "/lib", "/bin/", "/sbin/", "/opt/"};
    const bool isInstalled =
        std::any_of(std::begin(kInstalled), std::end(kInstalled),
                    [path](std::string_view folder) { return path.starts_with(folder); });
    struct stat status {};
    return isInstalled &&
           (path.ends_with(" (deleted)") ||
            (::stat((process + "/map_files/" + mapFileName(range)).c_str(), &status) == 0 &&
             status.st_nlink == 0));
}

}  // namespace

bool hasReplacedFile(const std::string& process) {
    LineReader maps(process + "/maps");
    std::string line;
    while (maps.next(line)) {
        WordReader words(line, " ");
        const auto range = words.next();
        const auto mode = words.next();
        const auto path = line.find('/');
        if (mode.size() > 2 && mode[2] == 'x' && path != std::string::npos &&
            isReplaced(process, range, std::string_view(line).substr(path))) {
            return true;
        }
    }
    return false;
}

std::string mapFileName(std::string_view range) {
    const auto dash = std::min(range.find('-'), range.size());
    return std::string(withoutZeros(range.substr(0, dash)))
        .append("-")
        .append(withoutZeros(range.substr(std::min(dash + 1, range.size()))));
}
