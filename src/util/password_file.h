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

/// Distinguishes a file from its replacement, and from itself before a change.
struct FileVersion {
    std::string path;
    struct stat status {};
    bool take();
    bool isCurrent() const;
};

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

    FileVersion passwords;
    FileVersion sources;
    std::chrono::milliseconds interval;
    std::optional<std::chrono::steady_clock::time_point> lastCurrent;
    std::string texts;           ///< name, home directory and shell of each, NUL-terminated
    std::vector<Entry> entries;  ///< sorted by name; empty where the file is not believed
};

/// One user of the password file, for a run that looks up no other, under the same conditions. It
/// is read up to the user's line, once for the look-up by name and the one by number after it.
class PasswordLine {
public:
    explicit PasswordLine(std::string passwordFile = "/etc/passwd",
                          std::string sourcesFile = "/etc/nsswitch.conf");

    /// Nothing for a user who has to be looked up by name.
    std::optional<PasswordEntry> find(const std::string& name);

    /// The user that was found by name. Nothing for another number, where an earlier line has the
    /// same number, and once a file has changed.
    std::optional<PasswordEntry> findNumber(uid_t uid) const;

private:
    std::optional<PasswordEntry> readUpTo(const std::string& name);

    FileVersion passwords;
    FileVersion sources;
    std::optional<PasswordEntry> found;
    bool isFirstOfNumber = false;
};

/// Whether the text of nsswitch.conf(5) at the path has users looked up in the password file first
/// and nowhere else when they are found there. False in doubt.
bool passwordFileComesFirst(const std::string& sourcesFile);
