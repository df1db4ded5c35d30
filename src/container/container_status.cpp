#include "container/container_status.h"

#include <sys/stat.h>

#include "util/line_reader.h"

namespace {

/// A controller's pair of files and where their values go.
struct CgroupFigure {
    const char* currentFile;
    const char* limitFile;
    bool ContainerStatus::*known;
    std::int64_t ContainerStatus::*current;
    std::int64_t ContainerStatus::*limit;
};

// memory.high and not memory.max: an account is slowed down at the first, long before it is killed
// at the second
constexpr CgroupFigure kFigures[] = {
    {"/pids.current", "/pids.max", &ContainerStatus::hasProcesses, &ContainerStatus::pidsCurrent,
     &ContainerStatus::pidsMax},
    {"/memory.current", "/memory.high", &ContainerStatus::hasMemory,
     &ContainerStatus::memoryCurrent, &ContainerStatus::memoryHigh},
};

constexpr std::int64_t kNoLimit = -1;

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

/// Values from 2^63 on come out negative.
std::int64_t toNumber(const std::string& text) {
    return static_cast<std::int64_t>(std::stoull(text));
}

std::int64_t toLimit(const std::string& text) {
    if (text.empty()) {
        return 0;
    }
    return text == "max" ? kNoLimit : toNumber(text);
}

}  // namespace

ContainerStatus::ContainerStatus(const ContainerHandle& container)
    : handle(&container), userName(container.userName) {}

void collectStatus(ContainerStatus& status) {
    collectStatus(status, status.handle->getNamespacePrefix() + "mnt",
                  status.handle->getCgroupPath());
}

void collectStatus(ContainerStatus& status, const std::string& namespaceFile,
                   const std::string& cgroup) {
    if (!exists(namespaceFile)) {
        return;
    }
    status.active = true;
    if (!exists(cgroup)) {
        return;
    }
    for (const CgroupFigure& figure : kFigures) {
        const std::string current = readFirstLine(cgroup + figure.currentFile);
        if (!current.empty()) {
            status.*figure.known = true;
            status.*figure.current = toNumber(current);
            status.*figure.limit = toLimit(readFirstLine(cgroup + figure.limitFile));
        }
    }
}

std::string readFirstLine(const std::string& path) {
    LineReader file(path);
    std::string line;
    return file.next(line) ? line : "";
}
