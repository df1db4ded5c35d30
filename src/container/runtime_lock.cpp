#include "container/runtime_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/time.h>

#include <cerrno>
#include <csignal>

#include "util/runtime_directory.h"
#include "util/scope_guard.h"

namespace {

FileDescriptor openRuntimeDirectory() {
    return FileDescriptor(::open(runtimeDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

timeval toTimeval(std::chrono::milliseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {seconds.count(), std::chrono::microseconds(time - seconds).count()};
}

void setTimer(std::chrono::milliseconds first, std::chrono::milliseconds next) {
    const itimerval timer{toTimeval(next), toTimeval(first)};
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

void wakeUp(int /*signal*/) {}

}  // namespace

FileDescriptor lockRuntimeDirectory() {
    FileDescriptor directory = openRuntimeDirectory();
    while (directory.valid() && ::flock(directory.get(), LOCK_EX) != 0) {
        const int error = errno;
        if (error != EINTR) {
            directory.reset();
            errno = error;
        }
    }
    return directory;
}

FileDescriptor shareRuntimeDirectory(std::chrono::milliseconds atMost) {
    FileDescriptor directory = openRuntimeDirectory();
    if (!directory.valid()) {
        return directory;
    }
    // A blocked wait is woken the moment the lock is free, which looking again and again would miss
    // between two accounts of a start of all. Without SA_RESTART the timer's signal ends the wait;
    // it comes again, in case the first one arrives just before the wait.
    struct sigaction action {};
    action.sa_handler = wakeUp;
    ::sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    sigset_t before;
    ::sigemptyset(&alarm);
    ::sigaddset(&alarm, SIGALRM);
    ::sigprocmask(SIG_UNBLOCK, &alarm, &before);
    setTimer(atMost, std::chrono::milliseconds(50));
    const ScopeGuard disarm([&before] {
        setTimer({}, {});
        ::sigprocmask(SIG_SETMASK, &before, nullptr);
        std::signal(SIGALRM, SIG_DFL);
    });
    const auto deadline = std::chrono::steady_clock::now() + atMost;
    while (::flock(directory.get(), LOCK_SH) != 0) {
        const int error = errno;
        const bool late = std::chrono::steady_clock::now() >= deadline;
        if (error != EINTR || late) {
            directory.reset();
            errno = error == EINTR ? ETIMEDOUT : error;
            break;
        }
    }
    return directory;
}
