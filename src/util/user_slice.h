// Where a user's processes are accounted: the slice of systemd.slice(5), below the hierarchy of
// cgroups. The library enters it, the program reads its figures.
#pragma once

#include <sys/types.h>

#include <string>

inline constexpr const char* kCgroupRoot = "/sys/fs/cgroup";

/// Relative to the hierarchy's root.
inline std::string userSlice(uid_t uid) {
    return "user.slice/user-" + std::to_string(uid) + ".slice";
}
