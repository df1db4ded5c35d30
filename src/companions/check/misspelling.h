// Whether a name that does not exist looks like a misspelling of one that does.
#pragma once

#include <functional>
#include <optional>
#include <string>

/// True for two names that differ in case, in two letters that have changed places, or in one
/// letter that was left out, added or replaced. Not so short names, and names that differ in their
/// first letter, or in a digit or a sign at the end: those are relatives, versions and backups of
/// each other, and no misspellings.
bool looksLike(const std::string& typed, const std::string& meant);

/// What is missing of a path that does not exist.
struct MissingPath {
    std::string path;                  ///< up to the first component that does not exist
    std::optional<std::string> meant;  ///< the same with a neighbour's name that looks like it
};

/// Nothing for a path that exists. Neighbours that are `known` were not misspelled: whoever wrote
/// the path knows their names.
std::optional<MissingPath> findMissing(const std::string& path,
                                       const std::function<bool(const std::string&)>& known);
