// Paths that the host's root takes orders from.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// The directory of the database's socket: the only one below /run that has a place in containers.
inline constexpr const char* kDatabaseSocket = "/run/mysqld";

/// What the host takes from the path, in words; nothing for a harmless one. A set-user-ID root
/// program in a container writes to what is bound, and the host carries it out without a container.
/// A path is what it says and, as the mount follows links, what it leads to.
std::optional<std::string> whyObeyed(const std::string& path);

/// `path` without links. What does not exist of it stays as it is.
std::string resolved(const std::string& path);

/// The homes of the users in a password file, but for those of the system.
class UserHomes {
public:
    explicit UserHomes(const std::string& passwordFile = "/etc/passwd");

    /// A user whose home is the path or below it.
    std::optional<std::string> userIn(const std::string& path) const;

private:
    struct Home {
        std::string user;
        std::string directory;  ///< without links
    };
    std::vector<Home> homes;
};
