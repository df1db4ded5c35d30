// The program's main function: prepares the process, parses the command line, checks the caller,
// loads the configuration and runs one command.
#include <libintl.h>
#include <sysexits.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "cli/help_screen.h"
#include "cli/options.h"
#include "config/configuration.h"
#include "container/exec.h"
#include "container/start.h"
#include "container/status.h"
#include "container/stop.h"
#include "util/daemon.h"
#include "util/errors.h"
#include "util/exception_tracer.h"
#include "util/output.h"
#include "util/program.h"
#include "util/settings.h"

namespace {

/// Runs one command; null for a command that has none, such as help.
using Driver = void (*)(const char* user);

Driver driverOf(int command) {
    switch (command) {
        case Start:
            return startCommand;
        case Exec:
            return execCommand;
        case Status:
            return statusCommand;
        case Stop:
            return stopCommand;
        default:
            return nullptr;
    }
}

/// Prints a failure after the program's name and returns the exit status.
int fail(int status, const std::string& message) {
    reportLines(std::string(programName()) + ": " + message);
    return status;
}

int runCommand(int command) {
    if (::geteuid() != 0) {
        return fail(EX_USAGE, ::gettext("only root may run this program"));
    }
    try {
        if (command == Exec) {
            Configuration::validate(configFile());  // the container library reads it for itself
        } else {
            Configuration::load(configFile());
        }
    } catch (const std::runtime_error& error) {
        return fail(EX_USAGE, std::string(configFile()) + ": " + error.what());
    }
    const Driver driver = driverOf(command);
    if (driver == nullptr) {
        report("Command not implemented!");
        return EX_USAGE;
    }
    try {
        driver(userName());
    } catch (const std::runtime_error& error) {
        return fail(EX_OSERR, error.what());
    }
    return EXIT_SUCCESS;
}

int run(int argc, char** argv) {
    const int command = parseArguments(argc, argv);
    switch (command) {
        case Help:
            printHelpScreen();
            return EXIT_SUCCESS;
        case 0:
        case UsageError:
            return EX_USAGE;
        case Version:
            print(std::string(kVersionLine) + "\n");
            return EXIT_SUCCESS;
        default:
            return runCommand(command);
    }
}

}  // namespace

int main(int argc, char** argv) {
    ExceptionTracer::enable();
    Daemon::forgetCaller();
    speakCallersLanguage();
    // host tools and the account's shell get nothing else of the caller's environment
    Daemon::cleanEnv({"PATH", "TERM", "LANG", "TZ"});

    // execve(2) allows an empty argument vector; since Linux 5.18 the kernel passes one empty name
    // instead
    static char ownName[] = "kivctl";
    static char* ownVector[] = {ownName, nullptr};
    if (argc < 1) {
        return run(1, ownVector);
    }
    if (*argv[0] == '\0') {
        argv[0] = ownName;
    }
    return run(argc, argv);
}
