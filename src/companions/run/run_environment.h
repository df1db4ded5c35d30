// The environment of a command that kiv-run runs.
#pragma once

#include <string>
#include <vector>

#include "util/util.h"

using Environment = std::vector<std::string>;  ///< "NAME=VALUE" each, every name once

/// ENV_PATH of login.defs(5); "/bin:/usr/bin" when the file does not exist or does not set it.
/// Throws std::runtime_error when the file cannot be read.
std::string loginPath(const std::string& definitions = "/etc/login.defs");

/// Adds the variable "NAME=VALUE". Replaces an earlier one of that name.
void setVariable(Environment& environment, const std::string& variable);

/// The variable's value; empty when there is no such variable.
std::string valueOf(const Environment& environment, const std::string& name);

/// HOME, USER, LOGNAME, SHELL and PATH (`path`) of the account, and TERM, LANG and TZ of the caller
/// if they are set.
Environment loginEnvironment(const std::string& userName, const PasswordEntry& account,
                             const std::string& path);
