#include "container/exec.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "container/enter.h"
#include "util/errors.h"
#include "util/output.h"

namespace {

/// execv(3) wants writable arguments.
[[noreturn]] void runShell(std::string& shell) {
    std::signal(SIGPIPE, SIG_DFL);
    const std::array<char*, 2> arguments = {shell.data(), nullptr};
    ::execv(shell.c_str(), arguments.data());
    reportSystemError("ERROR during execv: ");
    std::exit(-1);
}

}  // namespace

void execCommand(const char* user) {
    if (user == nullptr) {
        throw std::runtime_error("missing user!");
    }
    ContainerHandle handle(user);
    enterContainerShell(handle);
}

void enterContainerShell(ContainerHandle& handle) {
    // deliberate: not flushed, so that a pipe gets only the shell's own output; scripts rely on
    // that
    print("Switching into container '" + handle.userName + "'...\n");
    PasswordEntry account = passwordEntryOf(handle);
    // before the container's filter: behind it each of these 64 system calls takes half as long
    // again
    resetSignals(Hangup::Kept);
    std::signal(SIGPIPE, SIG_IGN);  // until the shell: a message without a reader must not end exec
    joinContainer(handle);
    becomeAccount(handle, account, STDERR_FILENO + 1);
    goHome(account.homeDirectory);
    ::setenv("HOME", account.homeDirectory.c_str(), 1);
    runShell(account.shell);
}
