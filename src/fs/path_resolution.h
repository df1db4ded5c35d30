// Opens paths that another user may be changing at the same time. An account can rename files in
// its own directories and put symbolic links there. Root must not follow those links, and must
// mount the file it has opened instead of resolving its name twice.
#pragma once

#include <string>

#include "util/file_descriptor.h"

/// All three return an O_PATH descriptor (close-on-exec), or an invalid one with errno set; ELOOP
/// means that there is a symbolic link where none may be followed.

/// Opens `path` on the running system. A link anywhere in it, also at its end, is an error.
FileDescriptor openWithoutLinks(const std::string& path);

/// Opens `path` below the directory `root`, whether it begins with "/" or not. Leaving that
/// directory (EXDEV) and links (ELOOP) are errors.
FileDescriptor openBeneath(const FileDescriptor& root, const std::string& path);

enum class LastLink { Follow, Keep };

/// Opens `path` on the running system. Links that root owns are followed, such as /var/run or
/// /etc/resolv.conf; a link of any other owner is an error. With LastLink::Keep a link at the end
/// of the path is opened itself, unless a slash follows it.
FileDescriptor openThroughRootLinks(const std::string& path, LastLink lastLink);

/// Bind-mounts the opened file or directory `source` over `target`. Result and errno are those of
/// mount(2). Needs a mounted /proc.
int bindMount(const FileDescriptor& source, const FileDescriptor& target);
