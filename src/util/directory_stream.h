// A directory stream with one owner, which closes it, for readdir(3).
#pragma once

#include <dirent.h>

#include <cerrno>
#include <memory>

struct DirectoryCloser {
    void operator()(DIR* stream) const { ::closedir(stream); }
};

/// Null when opendir(3) failed.
using DirectoryStream = std::unique_ptr<DIR, DirectoryCloser>;

/// The next entry, valid until the next call. Null after the last entry, with errno 0, and on an
/// error, with errno set.
inline const dirent* nextEntry(const DirectoryStream& stream) {
    errno = 0;
    return ::readdir(stream.get());
}
