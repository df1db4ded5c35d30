// How an account's container is doing, as the runtime directory and the kernel's accounting tell
// it. Reads only.
#pragma once

#include <cstdint>
#include <string>

#include "container/container_handle.h"

// The limits' files in an account's cgroup.
inline constexpr const char* kProcessesLimitFile = "/pids.max";
// Not memory.max: an account is slowed down at this one, long before it is killed at the other.
inline constexpr const char* kMemoryLimitFile = "/memory.high";

/// One account's figures. What was not read is false or 0.
struct ContainerStatus {
    explicit ContainerStatus(const ContainerHandle& container);

    const ContainerHandle* handle;  ///< not owned; for collectStatus alone, never later
    std::string userName;
    bool active = false;             ///< the mount-namespace file exists
    bool hasProcesses = false;       ///< pidsCurrent could be read
    std::int64_t pidsMax = 0;        ///< -1 is no limit; 0 unknown
    std::int64_t pidsCurrent = 0;    ///< processes and threads
    bool hasMemory = false;          ///< memoryCurrent could be read
    std::int64_t memoryHigh = 0;     ///< bytes; -1 is no limit, 0 unknown
    std::int64_t memoryCurrent = 0;  ///< bytes
};

/// Fills `status` from the places that its handle names. Throws only what std::stoull throws, for a
/// figure that is no number: such a file is not the kernel's, and no runtime error.
void collectStatus(ContainerStatus& status);

/// The same from given places; the path of the cgroup may be one below an open directory.
void collectStatus(ContainerStatus& status, const std::string& namespaceFile, int directory,
                   const std::string& cgroup);

/// Without its newline; empty when the file is, or when it cannot be opened or read: figures come
/// and go with their cgroup.
std::string readFirstLine(int directory, const std::string& path);
