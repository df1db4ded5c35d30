// The environment of a command that kiv-run runs.
#pragma once

#include <string>
#include <vector>

#include "util/util.h"

using Environment = std::vector<std::string>;  ///< "NAME=VALUE" each, every name once

/// The PATH that login.defs(5) has for accounts, "/bin:/usr/bin" where it has none or is not there.
/// Throws std::runtime_error when it cannot be read.
std::string loginPath(const std::string& definitions = "/etc/login.defs");

/// Adds the variable, in place of an earlier one of that name.
void setVariable(Environment& environment, const std::string& variable);

/// The value, empty when there is no such variable.
std::string valueOf(const Environment& environment, const std::string& name);

/// HOME, USER, LOGNAME, SHELL and PATH of the account; TERM, LANG and TZ are the caller's where the
/// caller has them.
Environment loginEnvironment(const std::string& userName, const PasswordEntry& account,
                             const std::string& path);
