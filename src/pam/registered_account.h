// Whether a login is one of an account that has a container.
#pragma once

#include <optional>
#include <string>

#include "util/util.h"

/// The account of the registry whose processes the user's would be: the one of that name, else one
/// with the same user ID, because a second name of an account must not lead past its container.
/// Nothing for a user who has no container. Throws std::runtime_error when that cannot be told: the
/// registry cannot be read or holds a NUL byte, or a name in it cannot be looked up.
std::optional<std::string> registeredAccount(const PasswordEntry& user,
                                             const std::string& registry);
