#include "util/util.h"

#include <pwd.h>

#include <cerrno>
#include <stdexcept>
#include <utility>

#include "util/errors.h"
#include "util/password_file.h"
#include "util/translatable.h"

namespace {

std::string textOf(const char* field) {
    return field == nullptr ? "" : field;
}

PasswordEntry copyOf(const passwd& entry) {
    return {textOf(entry.pw_name), entry.pw_uid, entry.pw_gid, textOf(entry.pw_dir),
            textOf(entry.pw_shell)};
}

/// getpwnam(3): these say "not found" on some name services, beside a plain null.
bool meansNotFound(int error) {
    return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

/// The name of a file within a directory, and no other.
bool isOneComponent(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

/// Reads the file only from the second look-up of a run on: for one user the C library is quicker.
std::optional<PasswordEntry> findInPasswordFile(const std::string& name) {
    static PasswordFile file;
    static bool isFirst = true;
    return std::exchange(isFirst, false) ? std::nullopt : file.find(name);
}

}  // namespace

PasswordEntry Util::getpwnam(const std::string& name) {
    const bool usable = isOneComponent(name);
    if (auto found = usable ? findInPasswordFile(name) : std::nullopt) {
        return *std::move(found);
    }
    errno = 0;
    const passwd* entry = usable ? ::getpwnam(name.c_str()) : nullptr;
    const int error = errno;
    if (entry == nullptr) {
        if (usable && !meansNotFound(error)) {
            throw systemError("cannot look up user: ", error);
        }
        throw std::runtime_error(translatable("unknown user"));
    }
    return copyOf(*entry);
}

std::optional<PasswordEntry> Util::getpwuid(uid_t uid) {
    const passwd* entry = ::getpwuid(uid);
    if (entry == nullptr) {
        return std::nullopt;
    }
    return copyOf(*entry);
}
