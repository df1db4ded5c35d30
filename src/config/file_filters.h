// Which lines of the host's account files an account sees.
#pragma once

#include <map>
#include <string>

/// File to extended regular expression; "${USER}" stands for the account's name.
const std::map<std::string, std::string>& builtInFileFilters();
