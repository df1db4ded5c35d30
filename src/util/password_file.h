// The password file passwd(5), read once for many look-ups. The C library reads it from its start
// for every look-up: thousands of accounts in a file of thousands of lines would take seconds.
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

/// Detects whether a file was changed or replaced.
struct FileVersion {
    std::string path;
    struct stat status {};
    /// Records the file's present version. False when it cannot be examined.
    bool take();
    /// True while the file at the path is still the recorded version, by stat(2).
    bool isCurrent() const;
};

/// Returns the result of a look-up by name, under every nsswitch.conf(5), or nothing. The file is
/// used only where a look-up by name would ask it first and end with its answer, and only while
/// neither of the two files has changed since they were read. Sources of users are never
/// enumerated: one may have millions of users, refuse, or list them in another order than it
/// searches them.
class PasswordFile {
public:
    /// Checks whether the files have changed once per `lookEvery`; by default at each find.
    explicit PasswordFile(std::string passwordFile = "/etc/passwd",
                          std::string sourcesFile = "/etc/nsswitch.conf",
                          std::chrono::milliseconds lookEvery = {});

    /// Reads the files if they were not read yet or have changed. Returns nothing for a user who
    /// must be looked up by name: a user of another source, and every user where another source
    /// comes first or while a file cannot be read or is being changed.
    std::optional<PasswordEntry> find(std::string_view name);

private:
    /// 16 bytes, in addition to its texts.
    struct Entry {
        std::size_t texts;  ///< where its texts begin in PasswordFile::texts
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
    std::vector<Entry> entries;  ///< sorted by name; empty when the file must not be used
};

/// One user of the password file, under the same conditions, for a run that looks up no other user.
/// Reads the file only up to the user's line, once for the look-up by name and the following one by
/// number.
class PasswordLine {
public:
    explicit PasswordLine(std::string passwordFile = "/etc/passwd",
                          std::string sourcesFile = "/etc/nsswitch.conf");

    /// Returns nothing for a user who must be looked up by name.
    std::optional<PasswordEntry> find(const std::string& name);

    /// The user that `find` returned, if it has this number. Nothing when an earlier line has the
    /// same number, or when a file has changed.
    std::optional<PasswordEntry> findNumber(uid_t uid) const;

private:
    std::optional<PasswordEntry> readUpTo(const std::string& name);

    FileVersion passwords;
    FileVersion sources;
    std::optional<PasswordEntry> found;
    bool isFirstOfNumber = false;
};

/// Whether the nsswitch.conf(5) at `sourcesFile` makes look-ups of users ask the password file
/// first and stop when the user is found there. False in doubt.
bool passwordFileComesFirst(const std::string& sourcesFile);
