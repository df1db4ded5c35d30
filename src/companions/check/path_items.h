// Checks the configuration's items that are paths, each separately.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "companions/check/findings.h"
#include "config/configuration.h"

/// True for a path that the configuration names elsewhere.
using KnownPaths = std::function<bool(const std::string& path)>;

/// Checks an item of hide, empty or bind, or the directory of an allowlist.
void checkPathItem(const ConfigurationLine& item, const std::string& text, const KnownPaths& known,
                   const FindingsOf& findings);

/// Checks a name in an allowlist.
void checkListedName(const ConfigurationLine& item, const KnownPaths& known,
                     const FindingsOf& findings);

/// The paths that an item selects on this host: the matches of a pattern, else the one path,
/// without ".." and without slashes at its end.
std::vector<std::string> pathsOf(const std::string& item);
