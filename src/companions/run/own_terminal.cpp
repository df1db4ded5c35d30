#include "companions/run/own_terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <utility>

#include "companions/run/callers_terminal.h"
#include "companions/run/relay.h"
#include "companions/run/relay_signals.h"
#include "companions/run/run_command.h"
#include "container/enter.h"
#include "util/daemon.h"
#include "util/errors.h"

namespace {

constexpr unsigned kNobody = 65534;
constexpr int kPlaceOfParentEnd = STDERR_FILENO + 1;
constexpr const char* kNoTerminal = "cannot open a terminal of the container: ";

/// The parent reads data from the account: a bug in it must not give the account any rights.
void giveUpRights(FileDescriptor& parentEnd) {
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    [[maybe_unused]] const int ignored = ::chdir("/");
    if (parentEnd.get() != kPlaceOfParentEnd) {
        parentEnd.reset(::dup3(parentEnd.get(), kPlaceOfParentEnd, O_CLOEXEC));
    }
    if (!parentEnd.valid()) {
        throw systemError("cannot hand the terminal over: ");
    }
    closeDescriptors(kPlaceOfParentEnd + 1);
    if (!Daemon::changeUser(/*primaryGroupOnly=*/true, kNobody, kNobody)) {
        throw systemError("setuid() failed: ");
    }
    ::prctl(PR_SET_DUMPABLE, 0);
}

/// The parent's part. Ends the process with the command's status.
[[noreturn]] void relay(pid_t command, FileDescriptor parentEnd) {
    int status = kFailed;
    try {
        stopBlocking();
        giveUpRights(parentEnd);
        status = Relay(command, std::move(parentEnd)).run();
    } catch (const std::exception& error) {
        report(std::string("kiv-run: ") + error.what());
    }
    ::_exit(status);
}

/// The relay needs a non-blocking master.
TerminalEnds openTerminal() {
    TerminalEnds ends;
    ends.master.reset(::open("/dev/ptmx", O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!ends.master.valid()) {
        throw systemError(kNoTerminal);
    }
    const int unlocked = 0;
    ::ioctl(ends.master.get(), TIOCSPTLCK, &unlocked);
    ends.terminal.reset(::ioctl(ends.master.get(), TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!ends.terminal.valid() || ::ioctl(ends.terminal.get(), TIOCSCTTY, 0) != 0) {
        throw systemError(kNoTerminal);
    }
    return ends;
}

}  // namespace

void relayFromHere(TerminalLink& link) {
    blockRelaySignals();
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
    const auto mode = callersMode();
    const auto size = callersSize();
    const TerminalEnds ends = openTerminal();
    if (mode) {
        ::tcsetattr(ends.terminal.get(), TCSANOW, &*mode);
    }
    if (size) {
        ::ioctl(ends.terminal.get(), TIOCSWINSZ, &*size);
    }
    sendTerminal(link.childEnd, ends);
    link.childEnd.reset();
    const int last = ::isatty(STDERR_FILENO) != 0 ? STDERR_FILENO : STDOUT_FILENO;
    for (int descriptor = STDIN_FILENO; descriptor <= last; ++descriptor) {
        if (::dup2(ends.terminal.get(), descriptor) != descriptor) {
            throw systemError(kNoTerminal);  // else the command would get the caller's
        }
    }
}
