#include "companions/refresh/in_child.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>

#include "util/errors.h"
#include "util/file_descriptor.h"
#include "util/output.h"

namespace {

/// Reads until the other end is closed, at the latest when the child ends.
std::string readAll(const FileDescriptor& pipe) {
    std::string text;
    std::array<char, 512> part{};
    for (;;) {
        const ssize_t size = ::read(pipe.get(), part.data(), part.size());
        if (size > 0) {
            text.append(part.data(), static_cast<std::size_t>(size));
        } else if (size == 0 || errno != EINTR) {
            return text;
        }
    }
}

void writeAll(const FileDescriptor& pipe, std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = ::write(pipe.get(), text.data(), text.size());
        if (size > 0) {
            text.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            return;  // the child's status says enough
        }
    }
}

int waitFor(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) == -1) {
        if (errno != EINTR) {
            throw systemError("waitpid() failed: ");
        }
    }
    return status;
}

[[noreturn]] void runChild(const std::function<void()>& action, pid_t parent,
                           const FileDescriptor& failure) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(EXIT_FAILURE);  // it ended before the kernel was asked
    }
    try {
        action();
    } catch (const std::exception& error) {
        writeAll(failure, error.what());
        ::_exit(EXIT_FAILURE);
    }
    ::_exit(EXIT_SUCCESS);
}

}  // namespace

void runInChild(const std::function<void()>& action) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw systemError("pipe() failed: ");
    }
    const FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    const pid_t parent = ::getpid();
    flushOutput();  // else both processes would print what is buffered
    const pid_t child = ::fork();
    if (child == -1) {
        throw systemError("fork() failed: ");
    }
    if (child == 0) {
        runChild(action, parent, writeEnd);
    }
    writeEnd.reset();
    const std::string failure = readAll(readEnd);
    const int status = waitFor(child);
    if (WIFSIGNALED(status)) {
        throw std::runtime_error("a child process was ended by signal " +
                                 std::to_string(WTERMSIG(status)));
    }
    if (status != 0) {
        throw std::runtime_error(failure);
    }
}
