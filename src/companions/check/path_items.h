// Checks the configuration's items that are paths, each separately.
#pragma once

#include <functional>
#include <string>

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

/// The path of an item, without ".." and without slashes at its end.
std::string pathOf(const std::string& item);

/// True for an item of hide or empty with "*". A start looks for its matches below the wrong
/// directory, so it hides and empties nothing, kiv.conf(5).
bool isFutilePattern(const ConfigurationLine& item);
