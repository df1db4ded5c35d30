// Look-ups in the password database.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

/// One entry of the password database, copied: the C library's own entry is valid only until the
/// next look-up.
struct PasswordEntry {
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
    std::string homeDirectory;
    std::string shell;
};

class Util {
public:
    /// The user of that name, getpwnam(3). Throws std::runtime_error "unknown user" when there is
    /// none, or "cannot look up user: " and the system's text when the database cannot be asked.
    /// The names "", "." and "..", and a name with "/" or a NUL byte, are unknown even if the
    /// database has them: the name becomes part of paths. Many look-ups in one run together take no
    /// longer than reading the password file once; each result is the same as that of a separate
    /// look-up.
    static PasswordEntry getpwnam(const std::string& name);

    /// The same, but nothing for an unknown user. Throws only when the database cannot be asked.
    static std::optional<PasswordEntry> findUser(const std::string& name);

    /// The first entry with that user ID, if there is one, getpwuid(3).
    static std::optional<PasswordEntry> getpwuid(uid_t uid);
};
