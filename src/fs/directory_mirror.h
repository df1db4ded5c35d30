// Mirrors a chain of directories from one tree into another.
#pragma once

#include <list>
#include <string>
#include <unordered_set>
#include <utility>

/// Creates the chain of directories `components` below `dst`, each with the mode (less the umask)
/// and the owner of its counterpart below `src`. Whatever already exists in `dst` stays, of any
/// type. The first component is appended to `src` and `dst` in place. Reports on standard error and
/// returns false when a source is missing or a directory cannot be created; directories created
/// before stay.
bool recMkDir(std::string& src, std::string& dst, std::list<std::string> components);

/// Mirrors several chains from one tree into another. A directory that one chain has created is not
/// examined again for the next, so nobody may remove it in between.
class TreeMirror {
public:
    /// The roots; "" is the running system's own.
    TreeMirror(std::string source, std::string target)
        : sourceRoot(std::move(source)), targetRoot(std::move(target)) {}

    /// Like recMkDir, from one root to the other.
    bool mirror(std::list<std::string> components);

private:
    std::string sourceRoot;
    std::string targetRoot;
    std::unordered_set<std::string> mirrored;  ///< as paths below either root
};
