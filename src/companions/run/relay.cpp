#include "companions/run/relay.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

namespace {

constexpr int kSignalBase = 128;
constexpr std::size_t kBlock = 4096;  // bytes; a writable pipe takes at least this, pipe(7)
constexpr std::size_t kMostLeftOutput = 128 << 10;  // bytes; more than a terminal buffers

bool isTransient(int error) {
    return error == EINTR || error == EAGAIN;
}

/// Reads up to one block. Result and errno are those of read(2).
ssize_t readInto(std::string& text, int descriptor) {
    std::array<char, kBlock> block{};
    const ssize_t size = ::read(descriptor, block.data(), block.size());
    text.assign(block.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    return size;
}

/// Writes `text` and removes the written part from it. False when nothing can be written any more.
bool writeFrom(std::string& text, int descriptor) {
    const ssize_t size = ::write(descriptor, text.data(), text.size());
    text.erase(0, size > 0 ? static_cast<std::size_t>(size) : 0);
    return size >= 0 || isTransient(errno);
}

}  // namespace

Relay::Relay(pid_t commandProcess, FileDescriptor parentEnd)
    : command(commandProcess), socket(std::move(parentEnd)) {}

int Relay::run() {
    while (!status) {
        waitAndHandle();
    }
    writeLeftOutput();
    caller.restore();
    return *status;
}

/// A block is read only after the previous one has been written, so that a fast writer waits for a
/// slow reader.
void Relay::waitAndHandle() {
    struct Watch {
        bool wanted;
        int descriptor;
        short event;
        void (Relay::*handle)();
    };
    const int master = ends.master.get();
    const bool hasMaster = ends.master.valid();
    const bool readsInput = hasMaster && inputOpen && !status;  // after that it is the caller's
    const std::array<Watch, 6> watches = {{
        {true, signals.descriptor(), POLLIN, &Relay::handleSignal},
        {socket.valid(), socket.get(), POLLIN, &Relay::acceptTerminal},
        {readsInput && input.empty(), STDIN_FILENO, POLLIN, &Relay::readInput},
        {hasMaster && !input.empty(), master, POLLOUT, &Relay::writeInput},
        {hasMaster && outputOpen && output.empty(), master, POLLIN, &Relay::readOutput},
        {!output.empty(), STDOUT_FILENO, POLLOUT, &Relay::writeOutput},
    }};
    std::array<pollfd, watches.size()> polled{};
    for (std::size_t i = 0; i < watches.size(); ++i) {
        polled[i] = {watches[i].wanted ? watches[i].descriptor : -1, watches[i].event, 0};
    }
    if (::poll(polled.data(), polled.size(), -1) < 0) {
        return;
    }
    for (std::size_t i = 0; i < watches.size(); ++i) {
        if (polled[i].revents != 0) {
            (this->*watches[i].handle)();
        }
    }
}

void Relay::handleSignal() {
    const auto signal = signals.next();
    if (!signal) {
        return;
    }
    switch (*signal) {
        case SIGCHLD:
            collectStatus();
            break;
        case SIGWINCH:
            resize();
            break;
        case SIGTSTP:
            caller.restore();
            obey(SIGTSTP);
            resume();
            break;
        case SIGCONT:
            resume();
            break;
        default:
            endBy(*signal);
    }
}

void Relay::collectStatus() {
    int ended = 0;
    pid_t collected = -1;
    do {
        collected = ::waitpid(command, &ended, WNOHANG);
    } while (collected == -1 && errno == EINTR);
    if (collected == command) {
        status = WIFSIGNALED(ended) ? kSignalBase + WTERMSIG(ended) : WEXITSTATUS(ended);
    }
}

/// Called when the terminal has arrived and when the process continues after a stop. Not raw mode
/// when the command has ended meanwhile: in the background this process might have to wait for the
/// terminal.
void Relay::resume() {
    collectStatus();
    if (!status && ends.master.valid()) {
        caller.enter();
        resize();
    }
}

void Relay::resize() const {
    const auto size = callersSize();
    if (size && ends.master.valid()) {
        ::ioctl(ends.master.get(), TIOCSWINSZ, &*size);
    }
}

void Relay::acceptTerminal() {
    auto received = receiveTerminal(socket);
    socket.reset();
    if (received) {
        ends = std::move(*received);
        resume();
    }
}

void Relay::readInput() {
    const ssize_t size = readInto(input, STDIN_FILENO);
    if (size > 0) {
        lastInput = input.back();
    } else if (size == 0 && !caller.isTerminal()) {
        endInput();
    } else if (size == 0 || !isTransient(errno)) {
        endBy(SIGHUP);  // the caller's terminal is gone
    }
}

/// Sends an end of file. After an unfinished line that takes two VEOF characters: the first one
/// only delivers the line, see termios(3).
void Relay::endInput() {
    inputOpen = false;
    termios mode{};
    if (::tcgetattr(ends.master.get(), &mode) == 0) {
        const bool hasLines = (mode.c_lflag & ICANON) != 0;
        const bool endsLine =
            lastInput == '\n' || (lastInput == '\r' && (mode.c_iflag & ICRNL) != 0);
        input.assign(hasLines && !endsLine ? 2 : 1, static_cast<char>(mode.c_cc[VEOF]));
    }
}

void Relay::writeInput() {
    if (!writeFrom(input, ends.master.get())) {
        input.clear();
    }
}

/// An end of file means that the command's terminal was hung up.
void Relay::readOutput() {
    const ssize_t size = readInto(output, ends.master.get());
    outputOpen = size > 0 || (size < 0 && isTransient(errno));
}

void Relay::writeOutput() {
    if (!writeFrom(output, STDOUT_FILENO)) {
        endBy(SIGHUP);  // nobody reads the output any more
    }
}

/// Relays what the command wrote before its end. Limited, because processes that it left running
/// may continue to write.
void Relay::writeLeftOutput() {
    for (std::size_t total = 0; total < kMostLeftOutput; total += output.size()) {
        while (!output.empty()) {
            waitAndHandle();
        }
        if (!ends.master.valid() || !outputOpen) {
            return;
        }
        readOutput();
        if (output.empty()) {
            return;
        }
    }
}

void Relay::endBy(int signal) {
    caller.restore();
    obey(signal);
    ::_exit(kSignalBase + signal);
}
