// Turns configured path patterns into paths.
#pragma once

#include <list>
#include <string>

/// A pattern without "*" comes back as written, whether it exists or not, "?" and "[" taken
/// literally. One with "*" comes back as the sorted glob(3) matches of `base` + "/" + pattern, full
/// paths that begin with `base`; none when nothing matches. The callers rely on that difference.
/// A pattern that is longer than a path may be (PATH_MAX) is reported and left out.
std::list<std::string> expandPaths(const std::string& base, const std::list<std::string>& patterns);
