// The lines of the host's account files that an account sees.
#pragma once

#include <map>
#include <string>

/// File to extended regular expression; "${USER}" stands for the account's name. Valid as long as
/// the process.
const std::map<std::string, std::string>& builtInFileFilters();
