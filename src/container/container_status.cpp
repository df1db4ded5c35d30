#include "container/container_status.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstddef>

#include "util/file_descriptor.h"
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

constexpr CgroupFigure kFigures[] = {
    {"/pids.current", kProcessesLimitFile, &ContainerStatus::hasProcesses,
     &ContainerStatus::pidsCurrent, &ContainerStatus::pidsMax},
    {"/memory.current", kMemoryLimitFile, &ContainerStatus::hasMemory,
     &ContainerStatus::memoryCurrent, &ContainerStatus::memoryHigh},
};

constexpr std::int64_t kNoLimit = -1;

bool exists(int directory, const std::string& path) {
    struct stat status {};
    return ::fstatat(directory, path.c_str(), &status, 0) == 0;
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

/// The directory of all accounts' slices, opened once because thousands of files in it are read.
/// When it cannot be opened, no file below it can be read either.
int slicesDirectory(const std::string& path) {
    static FileDescriptor directory;
    if (!directory.valid()) {
        directory.reset(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    return directory.get();
}

}  // namespace

ContainerStatus::ContainerStatus(const ContainerHandle& container)
    : handle(&container), userName(container.userName) {}

void collectStatus(ContainerStatus& status) {
    const std::string cgroup = status.handle->getCgroupPath();
    const std::size_t slash = cgroup.rfind('/');
    collectStatus(status, status.handle->getNamespacePrefix() + "mnt",
                  slicesDirectory(cgroup.substr(0, slash)), cgroup.substr(slash + 1));
}

void collectStatus(ContainerStatus& status, const std::string& namespaceFile, int directory,
                   const std::string& cgroup) {
    if (!exists(AT_FDCWD, namespaceFile)) {
        return;
    }
    status.active = true;
    if (!exists(directory, cgroup)) {
        return;
    }
    for (const CgroupFigure& figure : kFigures) {
        const std::string current = readFirstLine(directory, cgroup + figure.currentFile);
        if (!current.empty()) {
            status.*figure.known = true;
            status.*figure.current = toNumber(current);
            status.*figure.limit = toLimit(readFirstLine(directory, cgroup + figure.limitFile));
        }
    }
}

std::string readFirstLine(int directory, const std::string& path) {
    LineReader file(directory, path);
    std::string line;
    return file.next(line) ? line : "";
}
