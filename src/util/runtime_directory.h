// Where the namespace files of all containers live.
#pragma once

#include <string>

/// "/run/kiv": mode 0700, bind-mounted on itself and private. The namespace files in it are
/// user + "@" + kind.
extern const std::string runtimeDirectory;
