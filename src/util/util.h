// Look-ups in the password database.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

/// One line of the password database, copied: the C library's own entry lasts only until the next
/// look-up.
struct PasswordEntry {
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string homeDirectory;
    std::string shell;
};

class Util {
public:
    /// Throws std::runtime_error "unknown user" when there is no such account, or "cannot look up
    /// user: " and the system's text when the database cannot be asked. An empty name, ".",
    /// ".." and one with "/" or a NUL byte are unknown, whatever the database would say: the name
    /// becomes part of paths. Many look-ups in one run take no longer than reading the password
    /// file once, and give what each by itself would give.
    static PasswordEntry getpwnam(const std::string& name);

    /// The same; nothing for an unknown user. Throws only when the database cannot be asked.
    static std::optional<PasswordEntry> findUser(const std::string& name);

    /// The first entry with that user id, if there is one.
    static std::optional<PasswordEntry> getpwuid(uid_t uid);
};
