#include "pam/start_program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/scope_guard.h"
#include "util/string_util.h"

namespace {

constexpr const char* kProgram = KIVCTL_PROGRAM;
constexpr std::size_t kLongestReason = 512;  // bytes; a line of the log has at most 1 KiB

/// Reads to the end, so that the program never blocks on a full pipe; returns only the beginning.
std::string readAll(const FileDescriptor& source) {
    std::string text;
    std::array<char, 512> buffer{};
    for (;;) {
        const ssize_t size = ::read(source.get(), buffer.data(), buffer.size());
        if (size > 0 && text.size() < kLongestReason) {
            text.append(buffer.data(), static_cast<std::size_t>(size));
        } else if (size == 0 || (size < 0 && errno != EINTR)) {
            StringUtil::trim(text, "\n");
            return text;
        }
    }
}

/// Runs the program with standard error on `errors`. It inherits no other open file of the host
/// program, and none of its signal settings. Returns 0, or errno.
int spawn(pid_t& child, const std::string& user, const FileDescriptor& errors) {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&files);
    ::posix_spawnattr_init(&attributes);
    const ScopeGuard release([&] {
        ::posix_spawn_file_actions_destroy(&files);
        ::posix_spawnattr_destroy(&attributes);
    });
    ::posix_spawn_file_actions_adddup2(&files, errors.get(), STDERR_FILENO);
    ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    sigset_t signals;
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::array<std::string, 3> words = {kProgram, "start", user};
    const std::array<char*, 4> arguments = {words[0].data(), words[1].data(), words[2].data(),
                                            nullptr};
    std::string path = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
    const std::array<char*, 2> environment = {path.data(), nullptr};
    return ::posix_spawn(&child, kProgram, &files, &attributes, arguments.data(),
                         environment.data());
}

}  // namespace

void runStart(const std::string& user) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw systemError("pipe() failed: ");
    }
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    pid_t child = 0;
    const int error = spawn(child, user, writing);
    if (error != 0) {
        throw systemError(std::string("cannot run ") + kProgram + ": ", error);
    }
    writing.reset();
    const std::string said = readAll(reading);
    int status = 0;
    pid_t ended = -1;
    do {
        ended = ::waitpid(child, &status, 0);
    } while (ended == -1 && errno == EINTR);
    // if the host program's SIGCHLD handler has already waited for it, its status is unknown; the
    // next step finds out whether the container runs
    if (ended == child && status != 0) {
        throw std::runtime_error("cannot start the container: " + said);
    }
}
