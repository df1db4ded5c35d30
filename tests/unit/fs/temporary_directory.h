// A directory for one test, removed with all its content by the destructor.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "kivctl-test-XXXXXX").string();
        path = ::mkdtemp(name.data());
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    /// The full path of `name`, which begins with "/".
    std::string at(const std::string& name) const { return path + name; }

    std::string write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
        std::ofstream(at(name), std::ios::binary) << content;
        return at(name);
    }

    void makeDirectory(const std::string& name, mode_t mode = 0755) const {
        std::filesystem::create_directories(at(name));
        ::chmod(at(name).c_str(), mode);
    }

    std::string read(const std::string& name) const {
        std::ifstream file(at(name), std::ios::binary);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }

    bool has(const std::string& name) const {
        struct stat status {};
        return ::lstat(at(name).c_str(), &status) == 0;
    }

    /// The complete st_mode, inode(7).
    mode_t mode(const std::string& name) const {
        struct stat status {};
        ::lstat(at(name).c_str(), &status);
        return status.st_mode;
    }

    std::string path;
};
