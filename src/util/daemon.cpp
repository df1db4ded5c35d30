#include "util/daemon.h"

#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string_view>

namespace {

std::string_view nameOf(std::string_view variable) {
    return variable.substr(0, variable.find('='));
}

bool hasIds(uid_t uid, gid_t gid) {
    uid_t realUid = 0;
    uid_t effectiveUid = 0;
    uid_t savedUid = 0;
    gid_t realGid = 0;
    gid_t effectiveGid = 0;
    gid_t savedGid = 0;
    if (::getresuid(&realUid, &effectiveUid, &savedUid) != 0 ||
        ::getresgid(&realGid, &effectiveGid, &savedGid) != 0) {
        return false;
    }
    return realUid == uid && effectiveUid == uid && savedUid == uid && realGid == gid &&
           effectiveGid == gid && savedGid == gid;
}

/// A process that has given up root for good cannot do this. Detects a saved user ID of root.
bool canBecomeRoot(uid_t uid) {
    return uid != 0 && ::setresuid(0, 0, 0) == 0;
}

}  // namespace

void Daemon::cleanEnv(const std::vector<std::string>& keep) {
    // rebuilt, not unset one by one: unsetenv(3) cannot remove an entry without "="
    std::vector<std::string> kept;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        const std::string_view entry = *variable;
        const bool wanted = entry.find('=') != std::string_view::npos &&
                            std::find(keep.begin(), keep.end(), nameOf(entry)) != keep.end();
        if (wanted) {
            kept.emplace_back(entry);
        }
    }
    ::clearenv();
    for (const std::string& entry : kept) {
        const std::string name(nameOf(entry));
        ::setenv(name.c_str(), entry.c_str() + name.size() + 1, 0);
    }
}

bool Daemon::changeUser(bool primaryGroupOnly, unsigned uid, unsigned gid) {
    // to setresuid(2) this number means "no change": the process would stay root
    constexpr unsigned kUnchanged = -1U;
    if (uid == kUnchanged || gid == kUnchanged) {
        errno = EINVAL;
        return false;
    }
    const gid_t group = gid;
    if (primaryGroupOnly && ::setgroups(1, &group) != 0) {
        return false;
    }
    // groups first: without root's user ID the process may not change them any more
    if (::setresgid(gid, gid, gid) != 0 || ::setresuid(uid, uid, uid) != 0) {
        return false;
    }
    if (!hasIds(uid, gid) || canBecomeRoot(uid)) {
        errno = EPERM;
        return false;
    }
    return true;
}

void Daemon::forgetCaller() {
    // open(2) takes the lowest free descriptor, so the loop ends above 2
    int descriptor = ::open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        descriptor = ::open("/dev/null", O_RDWR);
    }
    if (descriptor > STDERR_FILENO) {
        ::close(descriptor);
    }
    std::signal(SIGCHLD, SIG_DFL);
    std::signal(SIGPIPE, SIG_IGN);
}
