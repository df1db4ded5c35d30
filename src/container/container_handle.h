// The account that a container belongs to, checked once, and the names derived from it.
#pragma once

#include <cstdint>
#include <string>

/// The account's part of interface names: the user name when it has at most 10 characters, else the
/// first 9 characters of its digest. It never changes for a user name: rules and interfaces of a
/// running container carry it.
std::string shortNameOf(const std::string& userName);

/// Built per account and command; holds no open resources. The container library does not look into
/// it: it only passes it to libraryLogCallback, which puts the library's message into `error`.
class ContainerHandle {
public:
    /// Throws std::runtime_error, beginning with the user name and ": ", when the name contains "@"
    /// (which separates user and kind in namespace files), when the user is unknown, and when its
    /// user ID is 0.
    explicit ContainerHandle(std::string userName);
    ContainerHandle(const ContainerHandle&) = delete;
    ContainerHandle& operator=(const ContainerHandle&) = delete;

    /// shortNameOf(userName), computed by the first call. The reference is valid as long as the
    /// handle.
    const std::string& getShortName();

    /// The account's cgroup v2 directory, an absolute path. It need not exist.
    std::string getCgroupPath() const;

    /// The path of a namespace file without the kind at its end: "/run/kiv/USER@".
    std::string getNamespacePrefix() const;

    std::string error;
    std::string userName;
    std::string shortName;  ///< empty until first asked for
    std::uint32_t uid = 0;  ///< never 0 once constructed
};
