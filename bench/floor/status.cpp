// status REGISTRY PASSWORDS: reads both files once, makes two checks and four reads per account,
// and prints the table.
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "floor.h"

namespace {

std::string whole(const char* path) {
    std::string text;
    char buffer[65536];
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    for (ssize_t length = 0; (length = ::read(file, buffer, sizeof(buffer))) > 0;) {
        text.append(buffer, static_cast<std::size_t>(length));
    }
    ::close(file);
    return text;
}

std::string_view nextLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

long long figure(const char* directory, const char* name) {
    char path[160];
    char text[32];
    std::snprintf(path, sizeof(path), "%s/%s", directory, name);
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t length = ::read(file, text, sizeof(text) - 1);
    ::close(file);
    text[length > 0 ? length : 0] = '\0';
    return std::strcmp(text, "max\n") == 0 ? -1 : std::atoll(text);
}

void row(std::string& table, std::string_view name, unsigned uid) {
    char path[128];
    char line[160];
    struct stat status {};
    std::snprintf(path, sizeof(path), "/run/kiv/%.*s@mnt", static_cast<int>(name.size()),
                  name.data());
    const bool active = ::stat(path, &status) == 0;
    long long figures[4] = {};
    std::snprintf(path, sizeof(path), "/sys/fs/cgroup/user.slice/user-%u.slice", uid);
    if (active && ::stat(path, &status) == 0) {
        int number = 0;
        for (const char* file : {"pids.current", "pids.max", "memory.current", "memory.high"}) {
            figures[number++] = figure(path, file);
        }
    }
    const int length =
        std::snprintf(line, sizeof(line), "| %-7.*s | %-6s | %9lld %7lld | %12lld %7lld |\n",
                      static_cast<int>(name.size()), name.data(), active ? "yes" : "no", figures[0],
                      figures[1], figures[2], figures[3]);
    table.append(line, static_cast<std::size_t>(length));
}

}  // namespace

int main(int /*argc*/, char** argv) {
    const std::string passwords = whole(argv[2]);
    std::unordered_map<std::string_view, unsigned> uids;
    for (std::string_view rest = passwords; !rest.empty();) {
        const std::string_view line = nextLine(rest);
        const std::size_t name = line.find(':');
        uids.emplace(line.substr(0, name),
                     std::strtoul(line.data() + line.find(':', name + 1) + 1, nullptr, 10));
    }
    const std::string registry = whole(argv[1]);
    std::string table;
    for (std::string_view rest = registry; !rest.empty();) {
        const std::string_view line = nextLine(rest);
        const std::string_view name = line.substr(0, line.find(' '));
        row(table, name, uids.at(name));
    }
    return ::write(STDOUT_FILENO, table.data(), table.size()) < 0 ? 1 : 0;
}
