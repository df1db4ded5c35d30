// Operations on paths as text. No file is examined.
#pragma once

#include <list>
#include <string>

/// The components of `path` in order, for recMkDir.
std::list<std::string> componentsOf(const std::string& path);

/// True for an item that the layer cannot empty: /proc is mounted over the layer, so the item is
/// covered by its own mount instead.
bool isBelowProc(const std::string& item);

/// True when `path` is `directory` or lies below it. Neither may end in a slash.
bool isAtOrBelow(const std::string& path, const std::string& directory);

/// `path` without its last component; slashes at the end are ignored. The parent of "/" is "/", and
/// that of a name without a slash is "".
std::string parentOf(const std::string& path);

/// `item` as a path that cannot lead out of the directory that it is appended to. An item that
/// begins with "/" and has no "..", and an empty item, stay as they are. In any other item "." and
/// ".." are resolved as text, starting at "/"; the result is "" when it would be "/" itself.
std::string anchored(const std::string& item);

/// `path` without slashes at its end: mknod(2) and unlink(2) fail with them.
std::string withoutSlashesAtEnd(const std::string& path);
