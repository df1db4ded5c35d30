#include "util/util.h"

#include <pwd.h>

#include <cerrno>
#include <stdexcept>

#include "util/errors.h"
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

}  // namespace

PasswordEntry Util::getpwnam(const std::string& name) {
    const bool usable = !name.empty() && name.find('/') == std::string::npos &&
                        name.find('\0') == std::string::npos;
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
