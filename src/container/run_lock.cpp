#include "container/run_lock.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>

#include "util/errors.h"
#include "util/runtime_directory.h"
#include "util/settings.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* kLockFile = "/.lock";  // without "@", so no namespace file has this name
constexpr mode_t kLockFileMode = 0600;
constexpr off_t kRuntimeDirectoryByte = off_t{1} << 32;  // beyond every user id
constexpr off_t kSourceNatByte = kRuntimeDirectoryByte + 1;
constexpr milliseconds kPatience{2000};
constexpr milliseconds kLongestAmongAll{10'000};
constexpr useconds_t kLookInterval = 10'000;  // microseconds

struct Request {
    off_t byte;
    short mode;           ///< F_RDLCK or F_WRLCK
    std::string waiting;  ///< printed when the wait is long
    std::optional<milliseconds> atMost;
};

/// On a read-only file system an existing file is opened for reading. That allows only shared
/// locks, but no container can be created there anyway.
FileDescriptor openLockFile() {
    const std::string path = runtimeDirectory + kLockFile;
    FileDescriptor file(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kLockFileMode));
    if (!file.valid() && errno == EROFS) {
        file.reset(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    }
    return file;
}

bool isReadOnly(const FileDescriptor& file) {
    return (::fcntl(file.get(), F_GETFL) & O_ACCMODE) == O_RDONLY;
}

/// Returns 0, or errno.
int tryLock(const FileDescriptor& file, const Request& request, int command) {
    struct flock lock {};
    lock.l_type = isReadOnly(file) ? static_cast<short>(F_RDLCK) : request.mode;
    lock.l_whence = SEEK_SET;
    lock.l_start = request.byte;
    lock.l_len = 1;
    return ::fcntl(file.get(), command, &lock) == 0 ? 0 : errno;
}

/// True when another process has the lock, or a signal came first.
bool isWorthTryingAgain(int error) {
    return error == EAGAIN || error == EACCES || error == EINTR;
}

/// Prints each text only once per run: stop waits twice, before and after it has ended processes.
void sayOnce(const std::string& waiting) {
    static std::string said;
    if (said != waiting) {
        report(waiting);
        said = waiting;
    }
}

/// Polls while another process has the lock: an account's lock is soon free, and a blocking wait
/// would need a timer to end it. A caller without a limit blocks once the line about a long wait is
/// printed. Returns 0, or errno; ETIMEDOUT when the time is over.
int waitForLock(const FileDescriptor& file, const Request& request) {
    const Clock::time_point begin = Clock::now();
    for (;;) {
        const auto waited = Clock::now() - begin;
        if (request.atMost && waited >= *request.atMost) {
            return ETIMEDOUT;
        }
        const bool isLong = waited >= kPatience;
        if (isLong) {
            sayOnce(request.waiting);
        }
        const bool blocked = isLong && !request.atMost;
        if (!blocked) {
            ::usleep(kLookInterval);
        }
        const int error = tryLock(file, request, blocked ? F_OFD_SETLKW : F_OFD_SETLK);
        if (!isWorthTryingAgain(error)) {
            return error;
        }
    }
}

/// Returns 0, or errno; ETIMEDOUT as above. Mostly the lock is free.
int takeLock(const FileDescriptor& file, const Request& request) {
    const int error = tryLock(file, request, F_OFD_SETLK);
    return isWorthTryingAgain(error) ? waitForLock(file, request) : error;
}

/// A plain file in its place holds no namespaces either; start reports that in its own words.
bool meansNoRuntimeDirectory(int error) {
    return error == ENOENT || error == ENOTDIR;
}

FileDescriptor lock(const Request& request) {
    FileDescriptor file = openLockFile();
    const int error = file.valid() ? takeLock(file, request) : errno;
    if (error == ETIMEDOUT || meansNoRuntimeDirectory(error)) {
        file.reset();
    } else if (error != 0) {
        throw systemError(runtimeDirectory + ": cannot lock: ", error);
    }
    errno = error;
    return file;
}

FileDescriptor lockAccountFor(const ContainerHandle& handle, const Request& request) {
    FileDescriptor file = lock(request);
    if (!file.valid() && errno == ETIMEDOUT) {
        throw std::runtime_error(handle.userName +
                                 ": containers are being started or stopped, try again later");
    }
    return file;
}

}  // namespace

FileDescriptor lockAccount(const ContainerHandle& handle) {
    const bool all = userName() == nullptr;
    return lockAccountFor(
        handle, {handle.uid, F_WRLCK,
                 handle.userName + ": waiting for another start, stop or exec of this account",
                 all ? std::optional(kLongestAmongAll) : std::nullopt});
}

FileDescriptor shareAccount(const ContainerHandle& handle, milliseconds atMost) {
    return lockAccountFor(
        handle, {handle.uid, F_RDLCK,
                 handle.userName + ": waiting for a start or stop of this account", atMost});
}

FileDescriptor lockRuntimeDirectory(const ContainerHandle& handle) {
    return lock({kRuntimeDirectoryByte,
                 F_WRLCK,
                 handle.userName + ": waiting for another start to prepare " + runtimeDirectory,
                 {}});
}

FileDescriptor tryToLockSourceNat() {
    return lock({kSourceNatByte, F_WRLCK, "", milliseconds(0)});
}
