// Copies of host files in which an account sees only some lines.
#pragma once

#include <map>
#include <string>

/// Puts a copy of every file of `filters` into the layer, holding the lines that its expression
/// matches, with the host file's owner and mode. "${USER}" in an expression stands for `userName`,
/// taken literally. Each error is reported on standard error and skips its file.
void writeFilteredCopies(const std::map<std::string, std::string>& filters,
                         const std::string& layerDir, const std::string& userName);
