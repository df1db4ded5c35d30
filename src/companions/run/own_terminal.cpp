#include "companions/run/own_terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "util/daemon.h"
#include "util/errors.h"

namespace {

constexpr unsigned kNobody = 65534;
constexpr int kSignalBase = 128;
constexpr std::size_t kBlock = 4096;  // what a pipe takes without blocking once it takes anything
constexpr std::size_t kMostLeftOutput = 128 << 10;  // more than a terminal holds back

/// How the caller's terminal is, and what the command's is to be like.
struct CallersTerminal {
    std::optional<termios> mode;  ///< none when standard input is no terminal
    std::optional<winsize> size;
};

std::optional<winsize> sizeOf(int descriptor) {
    winsize size{};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? std::optional(size) : std::nullopt;
}

CallersTerminal callersTerminal() {
    CallersTerminal terminal;
    termios mode{};
    if (::tcgetattr(STDIN_FILENO, &mode) == 0) {
        terminal.mode = mode;
    }
    terminal.size = sizeOf(STDIN_FILENO);
    if (!terminal.size) {
        terminal.size = sizeOf(STDOUT_FILENO);
    }
    return terminal;
}

void setMode(const termios& mode) {
    // from the background it would stop this process, which is about to end
    std::signal(SIGTTOU, SIG_IGN);
    ::tcsetattr(STDIN_FILENO, TCSADRAIN, &mode);
    std::signal(SIGTTOU, SIG_DFL);
}

sigset_t relayedSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGCHLD, SIGWINCH, SIGCONT, SIGTERM, SIGHUP, SIGINT, SIGQUIT}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

/// The command's terminal on one side, the caller's standard input and output on the other.
class Relay {
public:
    Relay(pid_t commandProcess, FileDescriptor socketEnd)
        : command(commandProcess), socket(std::move(socketEnd)), caller(callersTerminal()) {
        const sigset_t signals = relayedSignals();
        signalEnd.reset(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    }

    /// Returns the command's status.
    int run();

private:
    void poll();
    void receiveMaster();
    void readInput();
    void endInput();
    void readOutput();
    void writeOutput();
    void handleSignal();
    void makeRaw() const;
    void resize() const;
    void drain();
    [[noreturn]] void endBy(int signal);

    pid_t command;
    FileDescriptor socket;
    CallersTerminal caller;
    FileDescriptor signalEnd;
    FileDescriptor master;
    FileDescriptor peer;  ///< held open: the master would report an end while nobody else has it
    std::string input;    ///< for the command
    std::string output;   ///< for the caller
    char lastInput = '\n';
    bool inputOpen = true;
    std::optional<int> status;
};

int Relay::run() {
    while (!status) {
        poll();
    }
    drain();
    if (caller.mode) {
        setMode(*caller.mode);
    }
    return *status;
}

void Relay::poll() {
    const bool canRead = master.valid() && inputOpen && input.empty();
    const int fromCommand = output.empty() ? master.get() : -1;
    const auto forCommand = static_cast<short>(input.empty() ? 0 : POLLOUT);
    std::array<pollfd, 5> places = {{{signalEnd.get(), POLLIN, 0},
                                     {socket.get(), POLLIN, 0},
                                     {canRead ? STDIN_FILENO : -1, POLLIN, 0},
                                     {fromCommand, POLLIN, 0},
                                     {output.empty() ? -1 : STDOUT_FILENO, POLLOUT, 0}}};
    std::array<pollfd, 6> all{};
    std::copy(places.begin(), places.end(), all.begin());
    all[5] = {forCommand != 0 ? master.get() : -1, forCommand, 0};
    if (::poll(all.data(), all.size(), -1) < 0) {
        return;
    }
    if (all[0].revents != 0) {
        handleSignal();
    }
    if (all[1].revents != 0) {
        receiveMaster();
    }
    if (all[2].revents != 0) {
        readInput();
    }
    if (all[3].revents != 0) {
        readOutput();
    }
    if (all[4].revents != 0) {
        writeOutput();
    }
    if (all[5].revents != 0) {
        const ssize_t written = ::write(master.get(), input.data(), input.size());
        input.erase(0, written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

/// Nothing comes when the child has failed before; it has said why, and its status follows.
void Relay::receiveMaster() {
    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> space{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = space.data();
    message.msg_controllen = space.size();
    const ssize_t received = ::recvmsg(socket.get(), &message, MSG_CMSG_CLOEXEC);
    socket.reset();
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (received != 1 || header == nullptr || header->cmsg_type != SCM_RIGHTS) {
        return;
    }
    int descriptor = -1;
    std::memcpy(&descriptor, CMSG_DATA(header), sizeof(descriptor));
    master.reset(descriptor);
    ::fcntl(descriptor, F_SETFL, O_RDWR | O_NONBLOCK);
    peer.reset(::ioctl(descriptor, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    makeRaw();
    resize();
}

void Relay::readInput() {
    std::array<char, kBlock> block{};
    const ssize_t size = ::read(STDIN_FILENO, block.data(), block.size());
    if (size > 0) {
        input.assign(block.data(), static_cast<std::size_t>(size));
        lastInput = input.back();
    } else if (size == 0 && !caller.mode) {
        endInput();
    } else if (size == 0 || errno != EINTR) {
        endBy(SIGHUP);  // the caller's terminal has gone
    }
}

/// Behind an unfinished line the first end-of-file character only hands that over, see termios(3).
void Relay::endInput() {
    inputOpen = false;
    termios mode{};
    if (::tcgetattr(master.get(), &mode) == 0) {
        input.assign(lastInput == '\n' ? 1 : 2, static_cast<char>(mode.c_cc[VEOF]));
    }
}

void Relay::readOutput() {
    std::array<char, kBlock> block{};
    const ssize_t size = ::read(master.get(), block.data(), block.size());
    output.assign(block.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
}

void Relay::writeOutput() {
    const ssize_t size = ::write(STDOUT_FILENO, output.data(), output.size());
    if (size >= 0) {
        output.erase(0, static_cast<std::size_t>(size));
    } else if (errno != EINTR && errno != EAGAIN) {
        endBy(SIGHUP);  // nobody reads any more
    }
}

void Relay::handleSignal() {
    signalfd_siginfo info{};
    if (::read(signalEnd.get(), &info, sizeof(info)) != sizeof(info)) {
        return;
    }
    const auto signal = static_cast<int>(info.ssi_signo);
    if (signal == SIGCHLD) {
        int ended = 0;
        if (::waitpid(command, &ended, WNOHANG) == command) {
            status = WIFSIGNALED(ended) ? kSignalBase + WTERMSIG(ended) : WEXITSTATUS(ended);
        }
    } else if (signal == SIGWINCH) {
        resize();
    } else if (signal == SIGCONT) {
        makeRaw();
        resize();
    } else {
        endBy(signal);
    }
}

/// Each key goes to the command's terminal, which makes signals and lines of them.
void Relay::makeRaw() const {
    if (caller.mode && master.valid()) {
        termios raw = *caller.mode;
        ::cfmakeraw(&raw);
        ::tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
    }
}

void Relay::resize() const {
    const auto size = callersTerminal().size;
    if (size && master.valid()) {
        ::ioctl(master.get(), TIOCSWINSZ, &*size);
    }
}

/// What the command has written before its end. What it leaves running may go on writing.
void Relay::drain() {
    std::size_t total = 0;
    while (total < kMostLeftOutput) {
        while (!output.empty()) {
            writeOutput();
        }
        if (master.valid()) {
            readOutput();
        }
        if (output.empty()) {
            return;
        }
        total += output.size();
    }
}

/// The master is closed with the process, which hangs the command's terminal up.
void Relay::endBy(int signal) {
    if (caller.mode) {
        setMode(*caller.mode);
    }
    std::signal(signal, SIG_DFL);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal);
    ::raise(signal);
    ::sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    ::_exit(kSignalBase + signal);
}

/// What it reads is the account's: it must be of no use to whoever finds a fault in it.
void giveUpRights(int kept) {
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    [[maybe_unused]] const int ignored = ::chdir("/");
    if (kept > STDERR_FILENO + 1) {
        ::close_range(STDERR_FILENO + 1, static_cast<unsigned>(kept) - 1, 0);
    }
    ::close_range(static_cast<unsigned>(kept) + 1, UINT_MAX, 0);
    if (!Daemon::changeUser(/*primaryGroupOnly=*/true, kNobody, kNobody)) {
        throw systemError("setuid() failed: ");
    }
    ::prctl(PR_SET_DUMPABLE, 0);
}

/// Ends the process.
[[noreturn]] void relay(pid_t command, FileDescriptor socket) {
    int status = 125;
    try {
        giveUpRights(socket.get());
        Relay terminals(command, std::move(socket));
        status = terminals.run();
    } catch (const std::runtime_error& error) {
        report(std::string("kiv-run: ") + error.what());
    }
    ::_exit(status);
}

void sendDescriptor(int socket, int descriptor) {
    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> space{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = space.data();
    message.msg_controllen = space.size();
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    std::memcpy(CMSG_DATA(header), &descriptor, sizeof(descriptor));
    if (::sendmsg(socket, &message, MSG_NOSIGNAL) != 1) {
        throw systemError("cannot hand the terminal over: ");
    }
}

}  // namespace

TerminalLink::TerminalLink(int place) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        throw systemError("socketpair() failed: ");
    }
    parentEnd.reset(ends[0]);
    childEnd.reset(ends[1]);
    if (parentEnd.get() == place) {
        parentEnd.reset(::fcntl(ends[0], F_DUPFD_CLOEXEC, place + 1));
    }
    if (childEnd.get() != place) {
        childEnd.reset(::dup3(childEnd.get(), place, O_CLOEXEC));
    }
    if (!parentEnd.valid() || !childEnd.valid()) {
        throw systemError("socketpair() failed: ");
    }
}

void relayFromHere(TerminalLink& link) {
    const sigset_t signals = relayedSignals();
    ::sigprocmask(SIG_BLOCK, &signals, nullptr);
    const pid_t child = ::fork();
    if (child == -1) {
        throw systemError("fork() failed: ");
    }
    if (child != 0) {
        link.childEnd.reset();
        relay(child, std::move(link.parentEnd));
    }
    link.parentEnd.reset();
    ::setsid();  // leaves the caller's terminal
}

void takeOwnTerminal(TerminalLink& link) {
    const CallersTerminal caller = callersTerminal();
    const FileDescriptor master(::open("/dev/ptmx", O_RDWR | O_NOCTTY | O_CLOEXEC));
    constexpr const char* kFailure = "cannot open a terminal of the container: ";
    if (!master.valid()) {
        throw systemError(kFailure);
    }
    const int unlocked = 0;
    ::ioctl(master.get(), TIOCSPTLCK, &unlocked);
    const FileDescriptor terminal(
        ::ioctl(master.get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!terminal.valid() || ::ioctl(terminal.get(), TIOCSCTTY, 0) != 0) {
        throw systemError(kFailure);
    }
    if (caller.mode) {
        ::tcsetattr(terminal.get(), TCSANOW, &*caller.mode);
    }
    if (caller.size) {
        ::ioctl(terminal.get(), TIOCSWINSZ, &*caller.size);
    }
    const bool errorsToo = ::isatty(STDERR_FILENO) != 0;
    sendDescriptor(link.childEnd.get(), master.get());
    for (int descriptor = 0; descriptor <= (errorsToo ? STDERR_FILENO : STDOUT_FILENO);
         ++descriptor) {
        ::dup2(terminal.get(), descriptor);
    }
    link.childEnd.reset();
}
