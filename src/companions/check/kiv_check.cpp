// The program kiv-check: finds errors in the configuration and the registry before they take
// effect, and problems on the host.
#include <libintl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include "companions/check/check_options.h"
#include "companions/check/configuration_checks.h"
#include "companions/check/findings.h"
#include "companions/check/host_checks.h"
#include "companions/check/host_networks.h"
#include "companions/check/registry_checks.h"
#include "companions/whole_output.h"
#include "config/account_registry.h"
#include "util/daemon.h"
#include "util/errors.h"
#include "util/program.h"
#include "util/settings.h"

namespace {

constexpr int kFound = 1;
constexpr int kCannotCheck = 2;

int fail(const std::string& message) {
    reportLines("kiv-check: " + message);
    return kCannotCheck;
}

/// A file that the caller names is the only one checked: problems elsewhere must not keep a correct
/// file from being installed.
void collect(const CheckRequest& request, Findings& findings) {
    const bool both = request.host || (!request.configuration && !request.registry);
    const std::string configuration = request.configuration.value_or(kDefaultConfigFile);
    const std::string registry = request.registry.value_or(kAccountRegistry);
    if (both || request.configuration) {
        try {
            checkConfiguration(configuration, findings);
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(configuration + ": " + error.what());
        }
    }
    if (both || request.registry) {
        checkRegistry(registry, readHostNetworks(), findings);
    }
    if (request.host) {
        checkHost(registry, configuration, findings);
    }
}

int check(const CheckRequest& request) {
    if (request.host && ::geteuid() != 0) {
        return fail(::gettext("only root may run this program"));
    }
    Findings findings;
    std::string failure;
    try {
        collect(request, findings);
    } catch (const std::runtime_error& error) {
        failure = error.what();  // the findings so far are printed all the same
    }
    const bool found =
        std::any_of(findings.begin(), findings.end(), [&request](const Finding& finding) {
            return request.strict || finding.severity != Severity::Note;
        });
    if (request.quiet) {
        std::erase_if(findings,
                      [](const Finding& finding) { return finding.severity == Severity::Note; });
    }
    if (failure.empty() || !findings.empty()) {
        printWhole(request.json ? jsonOf(findings) : linesOf(findings));
    }
    if (!failure.empty()) {
        return fail(failure);
    }
    return found ? kFound : EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Daemon::forgetCaller();
        speakCallersLanguage();
        // host tools get nothing else of the caller's environment
        Daemon::cleanEnv({"PATH", "TERM", "LANG", "TZ"});
        settings().programName = "kiv-check";
        const CheckRequest request = parseCheckOptions(argc, argv);
        return request.action == Action::Work ? check(request)
                                              : answer(request.action, checkHelp());
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}
