// Mirrors a chain of directories from one tree into another.
#pragma once

#include <list>
#include <string>
#include <unordered_set>
#include <utility>

/// Makes every directory of the chain `components` exist below `dst`, each with mode (the umask
/// applies) and owner of its counterpart below `src`. What exists in `dst` stays, whatever its
/// type. `src` and `dst` grow by the first component in place; `components` is consumed. Reports on
/// standard error and returns false when a source is missing or a directory cannot be made; what
/// was made before stays.
bool recMkDir(std::string& src, std::string& dst, std::list<std::string> components);

/// Chains from one tree into another: what one has mirrored the next do not look at again. Nobody
/// may remove it meanwhile.
class TreeMirror {
public:
    /// The roots; "" is the running system's own.
    TreeMirror(std::string source, std::string target)
        : sourceRoot(std::move(source)), targetRoot(std::move(target)) {}

    /// As recMkDir from root to root.
    bool mirror(std::list<std::string> components);

private:
    std::string sourceRoot;
    std::string targetRoot;
    std::unordered_set<std::string> mirrored;  ///< paths below both roots
};
