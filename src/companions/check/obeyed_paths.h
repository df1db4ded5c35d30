// Paths whose content controls what the host's root does.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// The directory of the database's socket: the only directory below /run that containers have, too.
inline constexpr const char* kDatabaseSocket = "/run/mysqld";

/// Why the host obeys the content of the path, in words; nothing for a harmless path. A set-user-ID
/// root program in a container can write to a bound path, and the host would execute that outside
/// the container. Checks both the path as written and its target, because the mount follows links.
std::optional<std::string> whyObeyed(const std::string& path);

/// `path` with links resolved, realpath(3). Missing components stay as they are.
std::string resolved(const std::string& path);

/// The homes of the users in a password file, without system users.
class UserHomes {
public:
    explicit UserHomes(const std::string& passwordFile = "/etc/passwd");

    /// A user whose home is `path` or below it.
    std::optional<std::string> userIn(const std::string& path) const;

private:
    struct Home {
        std::string user;
        std::string directory;  ///< with links resolved
    };
    std::vector<Home> homes;
};
