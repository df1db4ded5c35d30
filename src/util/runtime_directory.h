// Where the namespace files of all containers live.
#pragma once

#include <string>

/// "/run/kiv": mode 0700, bind-mounted on itself and private. The namespace files in it are
/// user + "@" + kind.
extern const std::string runtimeDirectory;

/// The extended attribute of the runtime directory that marks the account's container as
/// unfinished: out of reach for who is not root, and gone with the directory at the next boot.
std::string unfinishedAttribute(const std::string& userName);
