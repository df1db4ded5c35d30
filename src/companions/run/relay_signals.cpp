#include "companions/run/relay_signals.h"

#include <sys/signalfd.h>

#include <csignal>

#include "util/errors.h"

namespace {

bool isIgnored(int signal) {
    struct sigaction action {};
    return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t relaySignals() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) {
        sigdelset(&signals, fault);
    }
    // SIGTTIN and SIGTTOU must stop this process in the background; SIGURG does nothing
    for (const int other : {SIGTTIN, SIGTTOU, SIGURG}) {
        sigdelset(&signals, other);
    }
    for (int signal = 1; signal < NSIG; ++signal) {
        if (isIgnored(signal)) {
            sigdelset(&signals, signal);
        }
    }
    return signals;
}

}  // namespace

void blockRelaySignals() {
    const sigset_t signals = relaySignals();
    if (::sigprocmask(SIG_BLOCK, &signals, nullptr) != 0) {
        throw systemError("sigprocmask() failed: ");
    }
}

RelaySignals::RelaySignals() {
    const sigset_t signals = relaySignals();
    queue.reset(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!queue.valid()) {
        throw systemError("signalfd() failed: ");
    }
}

std::optional<int> RelaySignals::next() {
    signalfd_siginfo info{};
    const bool isWhole = ::read(queue.get(), &info, sizeof(info)) == sizeof(info);
    return isWhole ? std::optional(static_cast<int>(info.ssi_signo)) : std::nullopt;
}

void obey(int signal) {
    std::signal(signal, SIG_DFL);
    ::raise(signal);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    ::sigprocmask(SIG_UNBLOCK, &only, nullptr);  // delivered here
    ::sigprocmask(SIG_BLOCK, &only, nullptr);
}
