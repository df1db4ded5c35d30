// Opens paths that somebody else may be changing at the same time. An account can rename what lies
// in its own directories and put links there; root must not follow those, and must mount what it
// has opened instead of resolving a name twice.
#pragma once

#include <string>

#include "util/file_descriptor.h"

/// All three return an O_PATH descriptor (close-on-exec), or an invalid one with errno set; ELOOP
/// means that a link stands where none may be followed.

/// `path` on the running system; a link anywhere in it, also at its end, is an error.
FileDescriptor openWithoutLinks(const std::string& path);

/// `path` below the directory `root`, whether it begins with "/" or not, without leaving that
/// directory (EXDEV) and without links.
FileDescriptor openBeneath(const FileDescriptor& root, const std::string& path);

enum class LastLink { Follow, Keep };

/// `path` on the running system. Links that root owns are followed, as a host has them in /var/run
/// or /etc/resolv.conf; a link of anybody else is an error. With LastLink::Keep a link at the end
/// of the path is opened itself, unless a slash is behind it.
FileDescriptor openThroughRootLinks(const std::string& path, LastLink lastLink);

/// Bind-mounts what `source` has opened over what `target` has opened. mount(2)'s result and errno.
int bindMount(const FileDescriptor& source, const FileDescriptor& target);
