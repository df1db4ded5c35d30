// The account that a container belongs to, checked once, and the names derived from it.
#pragma once

#include <cstdint>
#include <string>

/// The account's part of interface names: the user name up to 10 characters, else 9 characters of
/// its digest. The same name for ever.
std::string shortNameOf(const std::string& userName);

/// Built per account and command; holds no open resources. The container library only
/// hands it on to libraryLogCallback, which puts the library's message into `error`.
class ContainerHandle {
public:
    /// Throws std::runtime_error, beginning with the user name and ": ", for a name with "@" (it
    /// separates user and kind in namespace files), an unknown user and user id 0.
    explicit ContainerHandle(std::string userName);
    ContainerHandle(const ContainerHandle&) = delete;
    ContainerHandle& operator=(const ContainerHandle&) = delete;

    /// shortNameOf the user name.
    const std::string& getShortName();

    /// The account's cgroup v2 directory.
    std::string getCgroupPath() const;

    /// What a namespace kind is appended to, to name the namespace file.
    std::string getNamespacePrefix() const;

    std::string error;
    std::string userName;
    std::string shortName;  ///< empty until first asked for
    std::uint32_t uid = 0;  ///< never 0 once constructed
};
