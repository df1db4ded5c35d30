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
    auto found = findUser(name);
    if (!found) {
        throw std::runtime_error(translatable("unknown user"));
    }
    return *std::move(found);
}

std::optional<PasswordEntry> Util::findUser(const std::string& name) {
    if (!isOneComponent(name)) {
        return std::nullopt;
    }
    if (auto found = findInPasswordFile(name)) {
        return found;
    }
    errno = 0;
    const passwd* entry = ::getpwnam(name.c_str());
    const int error = errno;
    if (entry != nullptr) {
        return copyOf(*entry);
    }
    if (!meansNotFound(error)) {
        throw systemError("cannot look up user: ", error);
    }
    return std::nullopt;
}

std::optional<PasswordEntry> Util::getpwuid(uid_t uid) {
    const passwd* entry = ::getpwuid(uid);
    if (entry == nullptr) {
        return std::nullopt;
    }
    return copyOf(*entry);
}
