// The program kiv-run: runs a command, or the login shell, of an account in its container.
#include <fcntl.h>
#include <libintl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>

#include "companions/run/own_terminal.h"
#include "companions/run/run_command.h"
#include "companions/run/run_environment.h"
#include "companions/run/run_options.h"
#include "config/account_registry.h"
#include "config/configuration.h"
#include "container/enter.h"
#include "container/entry_log.h"
#include "container/set_up_child.h"
#include "container/start.h"
#include "util/daemon.h"
#include "util/errors.h"
#include "util/program.h"
#include "util/settings.h"
#include "util/string_util.h"

namespace {

constexpr unsigned kFirstPreserved = STDERR_FILENO + 1;
constexpr const char* kDefaultShell = "/bin/sh";  // passwd(5): for an entry without a shell

/// The first descriptor that is closed among those that the command is to get.
std::optional<int> closedDescriptor(unsigned preserved) {
    for (unsigned offset = 0; offset < preserved; ++offset) {
        const auto descriptor = static_cast<int>(kFirstPreserved + offset);
        if (::fcntl(descriptor, F_GETFD) == -1) {
            return descriptor;
        }
    }
    return std::nullopt;
}

/// Sets or clears close-on-exec on the descriptors that the command gets. It stays set until the
/// command is executed: the programs that --start runs must not have them.
void setCloseOnExec(unsigned preserved, bool closeOnExec) {
    for (unsigned offset = 0; offset < preserved; ++offset) {
        const auto descriptor = static_cast<int>(kFirstPreserved + offset);
        if (::fcntl(descriptor, F_SETFD, closeOnExec ? FD_CLOEXEC : 0) != 0) {
            throw systemError("descriptor ", std::to_string(descriptor), ": ");
        }
    }
}

/// The command as text for the log.
std::string commandLine(const RunRequest& request) {
    std::string line;
    for (const char* argument : request.command) {
        line += (line.empty() ? "" : " ") + std::string(argument);
    }
    return request.command.empty() ? "(login shell)" : line;
}

void startFirst(const RunRequest& request) {
    ::umask(kSetUpUmask);
    try {
        Configuration::load(kDefaultConfigFile);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string(kDefaultConfigFile) + ": " + error.what());
    }
    for (const AccountEntry& account : selectAccounts(request.user)) {
        ContainerHandle handle(account.name);
        startContainer(handle, IpNetwork(account.net));
    }
}

void enterDirectory(const std::string& path) {
    if (::chdir(path.c_str()) != 0) {
        throw systemError("chdir(", path, ") failed: ");
    }
}

/// Changes the working directory. Runs as the account, so that it reaches only directories that the
/// account may enter.
void goToWork(const RunRequest& request, const std::string& home) {
    if (!request.directory) {
        goHome(home);
        return;
    }
    enterDirectory("/");
    if (!request.directory->starts_with('/')) {
        enterDirectory(home);
    }
    enterDirectory(*request.directory);
}

Environment environmentFor(const RunRequest& request, const PasswordEntry& account,
                           const std::string& path) {
    Environment environment = loginEnvironment(request.user, account, path);
    if (request.preserved > 0) {
        setVariable(environment, "LISTEN_FDS=" + std::to_string(request.preserved));
        setVariable(environment, "LISTEN_PID=" + std::to_string(::getpid()));
    }
    for (const std::string& variable : request.variables) {
        setVariable(environment, variable);
    }
    return environment;
}

/// Argument 0 of a login shell is its name with a dash before it.
int executeLoginShell(std::string& shell, Environment& environment) {
    std::string name = "-" + shell.substr(shell.rfind('/') + 1);
    const bool isPath = shell.find('/') != std::string::npos;
    Program program{isPath ? shell : "./" + shell, {name.data()}};
    return execute(program, environment);
}

bool wantsOwnTerminal(const RunRequest& request) {
    const bool isOnTerminal = ::isatty(STDIN_FILENO) != 0 && ::isatty(STDOUT_FILENO) != 0;
    return request.terminal == Terminal::Own ||
           (request.terminal == Terminal::AsCaller && isOnTerminal);
}

/// Does not return when the command is executed; else returns the exit status.
int run(const RunRequest& request, EntryLog& log) {
    if (::geteuid() != 0) {
        throw std::runtime_error(::gettext("only root may run this program"));
    }
    setCloseOnExec(request.preserved, true);
    const auto logPlace = static_cast<int>(kFirstPreserved + request.preserved);
    log.moveTo(logPlace);
    std::optional<TerminalLink> link;
    if (wantsOwnTerminal(request)) {
        link.emplace(logPlace + 1);
    }
    ContainerHandle handle(request.user);
    PasswordEntry account = passwordEntryOf(handle);
    if (account.shell.empty()) {
        account.shell = kDefaultShell;
    }
    const std::string path = loginPath();
    if (request.start) {
        startFirst(request);
    }
    if (link) {
        relayFromHere(*link);
    }
    joinContainer(handle);
    // logged before the change of user: no process of the account can end this one before the line
    // is written
    log.entered();
    becomeAccount(handle, account, static_cast<unsigned>(logPlace) + (link ? 2 : 1));
    if (link) {
        takeOwnTerminal(*link);
    }
    goToWork(request, account.homeDirectory);
    ::umask(request.umask);
    Environment environment = environmentFor(request, account, path);
    setCloseOnExec(request.preserved, false);
    resetSignals(Hangup::Default);
    if (request.command.empty()) {
        return executeLoginShell(account.shell, environment);
    }
    Program program{request.command.front(), request.command};
    return execute(program, environment);
}

int fail(const std::exception& error) {
    reportLines(std::string("kiv-run: ") + error.what());
    return kFailed;
}

int enter(const RunRequest& request) {
    // before any file is opened, which could get the number of a closed descriptor
    const auto closed = closedDescriptor(request.preserved);
    // host tools get nothing else of the caller's environment
    Daemon::cleanEnv({"PATH", "TERM", "LANG", "TZ"});
    settings().userName = request.user;
    EntryLog log("kiv-run", request.user, "command=" + commandLine(request));
    try {
        if (closed) {
            throw systemError("descriptor " + std::to_string(*closed) + ": ", EBADF);
        }
        return run(request, log);
    } catch (const std::exception& error) {
        log.refused(error.what());
        return fail(error);
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Daemon::forgetCaller();
        speakCallersLanguage();
        settings().programName = "kiv-run";
        const RunRequest request = parseRunOptions(argc, argv);
        return request.action == Action::Work ? enter(request) : answer(request.action, runHelp());
    } catch (const std::exception& error) {
        return fail(error);
    }
}
