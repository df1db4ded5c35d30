// Finds out whether a login belongs to an account that has a container.
#pragma once

#include <optional>
#include <string>

#include "util/util.h"

/// The account of the registry that the user belongs to: the one of that name, else one with the
/// same user ID, because a second name for an account must not lead past its container. Nothing for
/// a user without a container. Throws std::runtime_error when that cannot be decided: the registry
/// cannot be read or contains a NUL byte, or a name in it cannot be looked up.
std::optional<std::string> registeredAccount(const PasswordEntry& user,
                                             const std::string& registry);
