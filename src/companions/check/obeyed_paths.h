// Paths that the host's root takes orders from.
#pragma once

#include <optional>
#include <string>

/// The directory of the database's socket: the only one below /run that has a place in containers.
inline constexpr const char* kDatabaseSocket = "/run/mysqld";

/// What the host takes from the path, in words; nothing for a harmless one. A set-user-ID root
/// program in a container writes to what is bound, and the host carries it out without a container.
std::optional<std::string> whyObeyed(const std::string& path);
