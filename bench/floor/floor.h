// Code that the floor programs share: the cheapest way to run a host tool with the C library, and
// the list of accounts.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <vector>

/// A line of the list that bench/run writes, with everything already looked up and calculated.
struct Account {
    std::string name;
    unsigned uid = 0;
    std::string home;
    std::string hostEnd;
    std::string containerEnd;
};

inline std::vector<Account> readList(const char* path) {
    std::vector<Account> accounts;
    FILE* file = std::fopen(path, "re");
    char name[64];
    char home[256];
    char hostEnd[64];
    char containerEnd[64];
    unsigned uid = 0;
    while (file != nullptr && std::fscanf(file, "%63s %u %255s %63s %63s", name, &uid, home,
                                          hostEnd, containerEnd) == 5) {
        accounts.push_back({name, uid, home, hostEnd, containerEnd});
    }
    return accounts;
}

inline void must(bool done, const char* what) {
    if (!done) {
        std::perror(what);
        std::_Exit(1);
    }
}

/// Does not copy this process: posix_spawn(3) shares its memory until the tool runs.
inline void tool(std::initializer_list<std::string> words) {
    std::vector<char*> argv;
    for (const std::string& word : words) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    must(::posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ) == 0,
         "posix_spawnp");
    must(::waitpid(child, &status, 0) == child && status == 0, argv[0]);
}
