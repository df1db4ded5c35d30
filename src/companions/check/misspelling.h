// Finds out whether a name that does not exist looks like a misspelling of one that does.
#pragma once

#include <functional>
#include <optional>
#include <string>

/// True when two names differ in case, in two exchanged letters, or in one letter that is missing,
/// added or replaced. False for short names, and for names that differ in the first letter or in a
/// digit or sign at the end: those are related programs, versions or backups, not misspellings.
bool looksLike(const std::string& typed, const std::string& meant);

/// The missing part of a path that does not exist.
struct MissingPath {
    std::string path;                  ///< up to the first missing component
    std::optional<std::string> meant;  ///< the same with a similar existing name
};

/// Nothing for a path that exists. Names in `known` are not suggested: the author of the path uses
/// them correctly elsewhere.
std::optional<MissingPath> findMissing(const std::string& path,
                                       const std::function<bool(const std::string&)>& known);
