// Paths as text: what components and parents they have. Looks at no file.
#pragma once

#include <list>
#include <string>

/// The components of `path`, as recMkDir takes them.
std::list<std::string> componentsOf(const std::string& path);

/// True for an item that no layer can empty: proc is mounted over the layer, and the item is
/// covered by a mount of its own.
bool isBelowProc(const std::string& item);

/// True for the directory itself too. Both without slashes at their ends.
bool isAtOrBelow(const std::string& path, const std::string& directory);

/// `path` without its last component; slashes at its end do not count. "/" is its own parent, and
/// that of a name without a slash is "".
std::string parentOf(const std::string& path);

/// `item` as a path that cannot lead out of the directory that it is appended to. An item that
/// begins with "/" and has no ".." stays as it is, as does an empty one. Of any other the "." and
/// ".." are resolved by name, as at "/"; "" is left when that leads to "/" itself.
std::string anchored(const std::string& item);

/// `path` without slashes at its end: mknod(2) and unlink(2) fail with them.
std::string withoutSlashesAtEnd(const std::string& path);
