// A directory stream with one owner, for readdir(3).
#pragma once

#include <dirent.h>

#include <memory>

struct DirectoryCloser {
    void operator()(DIR* stream) const { ::closedir(stream); }
};

using DirectoryStream = std::unique_ptr<DIR, DirectoryCloser>;
