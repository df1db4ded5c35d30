// Builds one part of the overlay layer, with kivctl's own code or with only the unavoidable calls,
// each in one process, whose start is not counted. Prints the seconds.
//   layer filters|binds|hidden kivctl|bare SOURCE TARGET
// SOURCE has what bench/subjects/layer.py has put there, TARGET is an empty directory.
#include <fcntl.h>
#include <linux/openat2.h>
#include <regex.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>
#include <set>
#include <string>

#include "config/file_filters.h"
#include "fs/overlay_layer.h"

namespace {

constexpr const char* kUser = "u000007";

struct Work {
    std::map<std::string, std::list<std::string>> allowlists;
    std::list<std::string> hide;
    std::list<std::string> empty;
    std::list<std::string> bind;
    std::map<std::string, std::string> filters;
};

void must(bool done, const std::string& what) {
    if (!done) {
        std::perror(what.c_str());
        std::_Exit(1);
    }
}

/// The paths in that file, one per line.
std::list<std::string> listed(const std::string& file) {
    std::list<std::string> paths;
    FILE* lines = std::fopen(file.c_str(), "re");
    must(lines != nullptr, file);
    char line[4096];
    while (std::fgets(line, sizeof(line), lines) != nullptr) {
        line[std::strcspn(line, "\n")] = '\0';
        paths.emplace_back(line);
    }
    std::fclose(lines);
    return paths;
}

Work workOf(const std::string& part, const std::string& source) {
    Work work;
    if (part == "filters") {
        for (const auto& [file, expression] : builtInFileFilters()) {
            work.filters[source + file] = expression;
        }
    } else if (part == "binds") {
        work.bind = listed(source + "/list");
    } else {
        work.hide = listed(source + "/list");
    }
    return work;
}

/// For each directory once, reads its mode and owner and creates it with them.
void bareParents(const std::string& source, const std::string& target, const std::string& path,
                 std::set<std::string>& made) {
    for (auto slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        const std::string directory = path.substr(0, slash);
        if (!made.insert(directory).second) {
            continue;
        }
        struct stat status {};
        must(::stat((source + directory).c_str(), &status) == 0, directory);
        must(::mkdir((target + directory).c_str(), status.st_mode) == 0 || errno == EEXIST,
             directory);
        must(::chown((target + directory).c_str(), status.st_uid, status.st_gid) == 0, directory);
    }
}

void bareFilter(const std::string& file, std::string expression, const std::string& target,
                std::set<std::string>& made) {
    expression.replace(expression.find("${USER}"), 7, kUser);
    regex_t wanted;
    must(::regcomp(&wanted, expression.c_str(), REG_EXTENDED | REG_NOSUB) == 0, expression);
    bareParents("", target, file, made);
    FILE* in = std::fopen(file.c_str(), "re");
    FILE* out = std::fopen((target + file).c_str(), "we");
    must(in != nullptr && out != nullptr, file);
    char* line = nullptr;
    std::size_t room = 0;
    ssize_t length = 0;
    while ((length = ::getline(&line, &room, in)) > 0) {
        regmatch_t range = {0, static_cast<regoff_t>(length - 1)};
        if (::regexec(&wanted, line, 1, &range, REG_STARTEND) == 0) {
            std::fwrite(line, 1, static_cast<std::size_t>(length), out);
        }
    }
    std::free(line);
    std::fclose(in);
    std::fclose(out);
    struct stat status {};
    must(::stat(file.c_str(), &status) == 0, file);
    must(::chown((target + file).c_str(), status.st_uid, status.st_gid) == 0, file);
    must(::chmod((target + file).c_str(), status.st_mode) == 0, file);
    ::regfree(&wanted);
}

void bareBind(const std::string& path, const std::string& target, std::set<std::string>& made) {
    struct stat status {};
    must(::stat(path.c_str(), &status) == 0, path);
    if (S_ISDIR(status.st_mode)) {
        bareParents("", target, path + "/", made);
        return;
    }
    bareParents("", target, path, made);
    const int file = ::open((target + path).c_str(), O_CREAT | O_CLOEXEC, 0640);
    must(file >= 0, path);
    ::close(file);
}

void bareHide(const std::string& lower, const std::string& path, const std::string& target,
              std::set<std::string>& made) {
    const std::string parent = path.substr(0, path.rfind('/'));
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long directory = ::syscall(SYS_openat2, AT_FDCWD, parent.c_str(), &how, sizeof(how));
    must(directory >= 0, parent);
    ::close(static_cast<int>(directory));
    bareParents(lower, target, path, made);
    must(::mknod((target + path).c_str(), S_IFCHR, 0) == 0, path);
}

void bare(const Work& work, const std::string& lower, const std::string& target) {
    std::set<std::string> made;
    for (const std::string& path : work.hide) {
        bareHide(lower, path, target, made);
    }
    for (const std::string& path : work.bind) {
        bareBind(path, target, made);
    }
    for (const auto& [file, expression] : work.filters) {
        bareFilter(file, expression, target, made);
    }
}

}  // namespace

int main(int argc, char** argv) {
    must(argc == 5, "usage: layer filters|binds|hidden kivctl|bare SOURCE TARGET");
    const std::string source = argv[3];
    const std::string target = argv[4];
    const Work work = workOf(argv[1], source);
    const std::string lower = "/mnt/root";  // where kivctl has the host's root
    ::umask(022);
    const auto begin = std::chrono::steady_clock::now();
    if (std::strcmp(argv[2], "kivctl") == 0) {
        buildOverlayLayer(lower, target, kUser,
                          {work.allowlists, work.hide, work.empty, work.bind, work.filters});
    } else {
        bare(work, lower, target);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    std::printf("%.9f\n", taken.count());
    return 0;
}
