// Turns configured path patterns into paths.
#pragma once

#include <list>
#include <string>

/// A pattern without "*" is returned as written, whether it exists or not; "?" and "[" are literal
/// in it. A pattern with "*" becomes the sorted glob(3) matches of `base` + "/" + pattern, as full
/// paths that begin with `base`, or nothing when nothing matches. The callers rely on that
/// difference. A pattern with "*" longer than PATH_MAX is reported on standard error and left out.
std::list<std::string> expandPaths(const std::string& base, const std::list<std::string>& patterns);
