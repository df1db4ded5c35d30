#include "companions/run/callers_terminal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "util/file_descriptor.h"

namespace {

std::optional<winsize> sizeOf(int descriptor) {
    winsize size{};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? std::optional(size) : std::nullopt;
}

/// True for the master of a pseudo-terminal. Opening it again would create another pseudo-terminal,
/// see ptmx(4).
bool isMaster(int descriptor) {
    int number = 0;
    return ::ioctl(descriptor, TIOCGPTN, &number) == 0;
}

/// True for pipes and terminals, which stay the same when they are opened again through /proc. A
/// regular file would lose its offset.
bool canBeReopened(int descriptor) {
    struct stat status {};
    const bool isPipe = ::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
    return isPipe || (::isatty(descriptor) != 0 && !isMaster(descriptor));
}

void stopBlocking(int descriptor, int access) {
    if (!canBeReopened(descriptor)) {
        return;
    }
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    const FileDescriptor own(::open(path.c_str(), access | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (own.valid()) {
        ::dup2(own.get(), descriptor);
    }
}

}  // namespace

std::optional<termios> callersMode() {
    termios mode{};
    return ::tcgetattr(STDIN_FILENO, &mode) == 0 ? std::optional(mode) : std::nullopt;
}

std::optional<winsize> callersSize() {
    const auto size = sizeOf(STDIN_FILENO);
    return size ? size : sizeOf(STDOUT_FILENO);
}

void stopBlocking() {
    stopBlocking(STDIN_FILENO, O_RDONLY);
    stopBlocking(STDOUT_FILENO, O_WRONLY);
}

void RawTerminal::enter() {
    if (original) {
        termios raw = *original;
        ::cfmakeraw(&raw);
        isRaw = ::tcsetattr(STDIN_FILENO, TCSADRAIN, &raw) == 0;
    }
}

void RawTerminal::restore() {
    if (isRaw) {
        // in the background tcsetattr(3) causes SIGTTOU, which would stop this process
        std::signal(SIGTTOU, SIG_IGN);
        ::tcsetattr(STDIN_FILENO, TCSADRAIN, &*original);
        std::signal(SIGTTOU, SIG_DFL);
        isRaw = false;
    }
}
