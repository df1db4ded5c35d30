// Copies of host files that hold only the lines an account may see.
#pragma once

#include <map>
#include <string>

/// Writes a copy of every file in `filters` (path to extended regular expression) into the layer:
/// the lines that its expression matches, with the host file's owner and mode. "${USER}" in an
/// expression stands for `userName`, taken literally. An error is reported on standard error and
/// skips its file.
void writeFilteredCopies(const std::map<std::string, std::string>& filters,
                         const std::string& layerDir, const std::string& userName);
