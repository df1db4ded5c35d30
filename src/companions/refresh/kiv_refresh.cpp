// The program kiv-refresh: lets running containers see files that were replaced on the host, and
// runs a hook for the refreshed accounts.
#include <libintl.h>
#include <sys/stat.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <list>
#include <stdexcept>
#include <string>

#include "companions/refresh/refresh_containers.h"
#include "companions/refresh/refresh_options.h"
#include "config/configuration.h"
#include "util/daemon.h"
#include "util/errors.h"
#include "util/exception_tracer.h"
#include "util/external_command.h"
#include "util/program.h"
#include "util/settings.h"

namespace {

/// Written by the administrator: restarts processes that still use files from before the refresh.
constexpr const char* kHook = "/etc/tarnwell/refresh-hook";

int fail(int status, const std::string& message) {
    reportLines("kiv-refresh: " + message);
    return status;
}

/// Runs the hook once, with the accounts that have a new view as arguments. Does nothing when the
/// file does not exist.
void runHook(const std::list<std::string>& accounts) {
    struct stat status {};
    if (accounts.empty() || (::stat(kHook, &status) != 0 && errno == ENOENT)) {
        return;
    }
    if (ExternalCommand(kHook, accounts).execute() != 0) {
        throw std::runtime_error(std::string(kHook) + " has failed");
    }
}

void refresh(const RefreshRequest& request) {
    const RefreshResult result = refreshContainers(request.user, request.what);
    std::string failures = result.failures;
    if (request.what == Refresh::NewView) {
        try {
            runHook(result.accounts);
        } catch (const std::runtime_error& error) {
            failures += (failures.empty() ? "" : "\n") + std::string(error.what());
        }
    }
    if (!failures.empty()) {
        throw std::runtime_error(failures);
    }
}

int run(const RefreshRequest& request) {
    if (::geteuid() != 0) {
        return fail(EX_USAGE, ::gettext("only root may run this program"));
    }
    // host tools get nothing else of the caller's environment
    Daemon::cleanEnv({"PATH", "TERM", "LANG", "TZ"});
    settings().userName = request.user;
    settings().debugMode = request.showSteps ? 1 : 0;
    if (request.configFile != nullptr) {
        settings().configFile = request.configFile;
    }
    try {
        Configuration::load(configFile());
    } catch (const std::runtime_error& error) {
        return fail(EX_USAGE, std::string(configFile()) + ": " + error.what());
    }
    refresh(request);
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    ExceptionTracer::enable();
    Daemon::forgetCaller();
    speakCallersLanguage();
    settings().programName = "kiv-refresh";
    RefreshRequest request;
    try {
        request = parseRefreshOptions(argc, argv);
    } catch (const std::runtime_error& error) {
        return fail(EX_USAGE, error.what());
    }
    try {
        return request.action == Action::Work ? run(request)
                                              : answer(request.action, refreshHelp());
    } catch (const std::runtime_error& error) {
        return fail(EX_OSERR, error.what());
    }
}
