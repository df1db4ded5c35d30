#include "util/util.h"

#include <pwd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

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

/// getpwnam(3): besides 0, some name services return one of these for "not found".
bool meansNotFound(int error) {
    return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM;
}

using Buffer = std::vector<char>;

struct LookUp {
    std::optional<PasswordEntry> entry;
    int error = 0;
};

/// `call` is getpwnam_r(3) or getpwuid_r(3). getpwnam(3) would overwrite the entry of the program
/// that the PAM module runs in.
template <typename Call>
LookUp lookUp(Call call) {
    constexpr std::size_t kUsualSize = 1024;
    constexpr std::size_t kLargestSize = std::size_t{1} << 24;
    for (Buffer buffer(kUsualSize);; buffer.resize(2 * buffer.size())) {
        passwd entry{};
        passwd* found = nullptr;
        const int error = call(&entry, buffer, &found);
        if (error != ERANGE || buffer.size() >= kLargestSize) {
            return {found != nullptr ? std::optional(copyOf(*found)) : std::nullopt, error};
        }
    }
}

/// True when the name is one component of a path.
bool isOneComponent(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

/// The first user of a run; most runs have only one.
PasswordLine& firstUser() {
    static PasswordLine line;
    return line;
}

/// Reads the whole password file only from the second look-up of a run on.
std::optional<PasswordEntry> findInPasswordFile(const std::string& name) {
    // checked at most every 10 ms: two file checks per account took a tenth of "status -a" with
    // thousands
    static PasswordFile file("/etc/passwd", "/etc/nsswitch.conf", std::chrono::milliseconds(10));
    static bool isFirst = true;
    return std::exchange(isFirst, false) ? firstUser().find(name) : file.find(name);
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
    LookUp result = lookUp([&name](passwd* entry, Buffer& buffer, passwd** found) {
        return ::getpwnam_r(name.c_str(), entry, buffer.data(), buffer.size(), found);
    });
    if (!result.entry && !meansNotFound(result.error)) {
        throw systemError("cannot look up user: ", result.error);
    }
    return std::move(result.entry);
}

std::optional<PasswordEntry> Util::getpwuid(uid_t uid) {
    if (auto found = firstUser().findNumber(uid)) {
        return found;
    }
    return lookUp([uid](passwd* entry, Buffer& buffer, passwd** found) {
               return ::getpwuid_r(uid, entry, buffer.data(), buffer.size(), found);
           })
        .entry;
}
