// Patterns of paths, one per line, in the target's own directory.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <list>

#include "fs/path_expansion.h"
#include "input.h"
#include "util/string_util.h"

namespace {

namespace fs = std::filesystem;

class ScratchDirectory {
public:
    ScratchDirectory() {
        std::string name = (fs::temp_directory_path() / "kivctl-fuzz-XXXXXX").string();
        demand(::mkdtemp(name.data()) != nullptr, "mkdtemp(3)");
        top = name;
        base = name + "/base";
        for (const char* directory : {"a/b/c", "a/bc", "empty", "with blank", "[odd]"}) {
            fs::create_directories(base + "/" + directory);
        }
        for (const char* file : {".hidden", "a/.h", "a/file", "a/b/*", "x\\y", "a/b/c/d"}) {
            std::ofstream(base + "/" + file) << "";
        }
        fs::create_symlink("a", base + "/link");
        fs::create_symlink("nowhere", base + "/dangling");
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory() {
        std::error_code ignored;
        fs::remove_all(top, ignored);
    }

    std::string base;

private:
    std::string top;
};

/// Patterns that leave the scratch directory, or go up and down in it: each "*/.." multiplies the
/// number of paths, as requested.
bool leadsElsewhere(const std::string& pattern) {
    const auto first = pattern.find("..");
    return first != std::string::npos && pattern.find("..", first + 1) != std::string::npos;
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

void requireSound(const std::string& base, const std::string& pattern) {
    const auto paths = expandPaths(base, {pattern});
    if (pattern.find('*') == std::string::npos) {
        demand(paths == std::list<std::string>{pattern}, "a plain path as it is");
        return;
    }
    for (const std::string& path : paths) {
        demand(path.starts_with(base + "/"), "a path below the base");
        demand(exists(path), "a path that is there");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ScratchDirectory directory;
    const std::string text = Input(data, size).all();
    std::list<std::string> patterns;
    for (const auto& pattern : StringUtil::split<std::list<std::string>>(text, "\n", true, false)) {
        if (!leadsElsewhere(pattern)) {
            patterns.push_back(pattern);
            requireSound(directory.base, pattern);
        }
    }
    std::list<std::string> oneByOne;
    for (const std::string& pattern : patterns) {
        oneByOne.splice(oneByOne.end(), expandPaths(directory.base, {pattern}));
    }
    demand(expandPaths(directory.base, patterns) == oneByOne, "pattern after pattern");
    return 0;
}
