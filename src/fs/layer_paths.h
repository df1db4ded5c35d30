// Paths of configured items, as the parts of the layer builder share them.
#pragma once

#include <list>
#include <string>

/// The components of `path`, as recMkDir takes them.
std::list<std::string> componentsOf(const std::string& path);

/// The parent of `path`, and its last component; a trailing "/" does not count.
std::string parentOf(const std::string& path);

/// `item` as a path that cannot lead out of the directory that it is appended to: as it stands,
/// unless it does not begin with "/" or has a ".." in it, which is then resolved as at "/".
std::string anchored(const std::string& item);

/// `path` without slashes at its end: calls that make or remove a name do not take them.
std::string withoutSlashesAtEnd(const std::string& path);

/// Mirrors the running host's directories `components` into the layer. False as from recMkDir.
bool mirrorFromHost(const std::string& layerDir, const std::list<std::string>& components);
