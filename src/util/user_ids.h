// User ids for a run over many accounts. A look-up by name reads the password file from its start
// each time, which makes thousands of accounts in a file of thousands of lines take seconds.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

/// Gives what a look-up by name gives, under every nsswitch.conf(5): the password file is read once
/// and only believed where a look-up by name would ask it first and end with its answer. Everything
/// else is looked up by name: users of other sources, all of them where another source comes first,
/// and all of them once one of the two files has changed. No source is enumerated: it may have
/// millions of users, refuse, or order them otherwise than it answers.
class UserIds {
public:
    /// Looks everything up by name.
    UserIds() = default;
    /// The texts of `userNames` must outlive the object; it needs 24 bytes or so for each of them
    /// and nothing for other users.
    explicit UserIds(std::vector<std::string_view> userNames,
                     const char* passwordFile = "/etc/passwd",
                     const char* sourcesFile = "/etc/nsswitch.conf");

    /// Throws what Util::getpwnam throws.
    uid_t of(const std::string& name) const;

private:
    /// What tells a file from the one that takes its place or from itself after a change.
    struct Version {
        const char* path = nullptr;
        struct stat status {};
        bool isCurrent() const;
    };
    struct Entry {
        std::string_view name;
        uid_t uid;
        bool known;
    };

    void readPasswords(const char* path);
    std::vector<Entry>::const_iterator find(std::string_view name) const;

    Version passwords;
    Version sources;
    std::vector<Entry> entries;  ///< sorted by name; empty where the file is not believed
};

/// Whether the text of nsswitch.conf(5) at the path has users looked up in the password file first
/// and nowhere else when they are found there. False in doubt.
bool passwordFileComesFirst(const char* sourcesFile);
