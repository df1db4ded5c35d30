// The password file, read once for many look-ups. The C library reads it from its start for each
// one, which makes thousands of accounts in a file of thousands of lines take seconds.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "util/util.h"

/// Gives what a look-up by name gives, under every nsswitch.conf(5), or nothing: the file is only
/// believed where a look-up by name would ask it first and end with its answer, and only while
/// neither of the two files has changed since they were read. No source of users is enumerated: it
/// may have millions of users, refuse, or order them otherwise than it answers.
class PasswordFile {
public:
    /// Whether the files have changed is looked at anew when `lookEvery` has passed, by default
    /// for each find.
    explicit PasswordFile(std::string passwordFile = "/etc/passwd",
                          std::string sourcesFile = "/etc/nsswitch.conf",
                          std::chrono::milliseconds lookEvery = {});

    /// Reads the files when they were not read before or have changed. Nothing for a user who has
    /// to be looked up by name: one of another source, everyone where another source comes first,
    /// and everyone while a file cannot be read or is being changed.
    std::optional<PasswordEntry> find(std::string_view name);

private:
    /// Distinguishes a file from its replacement, and from itself before a change.
    struct Version {
        std::string path;
        struct stat status {};
        bool take();
        bool isCurrent() const;
    };
    /// Beside the text of its line, an entry takes 16 bytes.
    struct Entry {
        std::size_t texts;  ///< where its texts begin
        uid_t uid;
        gid_t gid;
    };

    bool isCurrent();
    void read();
    void readPasswords();
    const char* nameOf(const Entry& entry) const { return texts.c_str() + entry.texts; }

    Version passwords;
    Version sources;
    std::chrono::milliseconds interval;
    std::optional<std::chrono::steady_clock::time_point> lastCurrent;
    std::string texts;           ///< name, home directory and shell of each, NUL-terminated
    std::vector<Entry> entries;  ///< sorted by name; empty where the file is not believed
};

/// Whether the text of nsswitch.conf(5) at the path has users looked up in the password file first
/// and nowhere else when they are found there. False in doubt.
bool passwordFileComesFirst(const std::string& sourcesFile);
