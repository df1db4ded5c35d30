// The cgroup that accounts a user's processes: the user's slice, systemd.slice(5). The library
// moves processes into it; the program reads its figures.
#pragma once

#include <sys/types.h>

#include <string>

inline constexpr const char* kCgroupRoot = "/sys/fs/cgroup";

/// The slice's path, relative to the root of the cgroup hierarchy.
inline std::string userSlice(uid_t uid) {
    return "user.slice/user-" + std::to_string(uid) + ".slice";
}
