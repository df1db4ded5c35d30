// The state and resource use of an account's container, read from the runtime directory and from
// the files of cgroup v2 (the kernel's cgroup-v2 document). Changes nothing.
#pragma once

#include <cstdint>
#include <string>

#include "container/container_handle.h"

// The files of the limits in an account's cgroup.
inline constexpr const char* kProcessesLimitFile = "/pids.max";
// Not memory.max: the kernel slows an account down at memory.high, long before it kills at
// memory.max.
inline constexpr const char* kMemoryLimitFile = "/memory.high";

/// One account's figures. A figure that could not be read is false or 0.
struct ContainerStatus {
    explicit ContainerStatus(const ContainerHandle& container);

    const ContainerHandle* handle;  ///< not owned; only for collectStatus, invalid later
    std::string userName;
    bool active = false;             ///< the mount-namespace file exists
    bool hasProcesses = false;       ///< pidsCurrent could be read
    std::int64_t pidsMax = 0;        ///< -1 is no limit; 0 unknown
    std::int64_t pidsCurrent = 0;    ///< processes and threads
    bool hasMemory = false;          ///< memoryCurrent could be read
    std::int64_t memoryHigh = 0;     ///< bytes; -1 is no limit, 0 unknown
    std::int64_t memoryCurrent = 0;  ///< bytes
};

/// Fills `status` from the files of its handle's account. Throws only what std::stoull throws, when
/// a figure is not a number: the kernel writes no such file.
void collectStatus(ContainerStatus& status);

/// The same from the given files. `cgroup` is relative to the open directory `directory`, or
/// absolute.
void collectStatus(ContainerStatus& status, const std::string& namespaceFile, int directory,
                   const std::string& cgroup);

/// The first line of a file, without its newline. Empty when the file is empty or cannot be opened
/// or read: the files come and go with their cgroup.
std::string readFirstLine(int directory, const std::string& path);
