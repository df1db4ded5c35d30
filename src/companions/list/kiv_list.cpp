// The program kiv-list: prints the state of the accounts' containers, for programs and for people.
#include <libintl.h>
#include <sysexits.h>
#include <unistd.h>

#include <exception>
#include <stdexcept>

#include "companions/list/account_list.h"
#include "companions/list/list_options.h"
#include "companions/list/list_output.h"
#include "companions/list/old_processes.h"
#include "companions/whole_output.h"
#include "util/daemon.h"
#include "util/errors.h"
#include "util/program.h"
#include "util/settings.h"

namespace {

int fail(int status, const std::string& message) {
    reportLines("kiv-list: " + message);
    return status;
}

int list(const ListRequest& request) {
    if (::geteuid() != 0) {
        return fail(EX_USAGE, ::gettext("only root may run this program"));
    }
    AccountList found = listAccounts(request.users);
    if (request.json) {  // the table does not show them, and searching all processes takes time
        addOldProcesses(found.accounts);
    }
    printWhole(request.json ? jsonOf(found.accounts) : tableOf(found.accounts));
    for (const std::string& failure : found.failures) {
        fail(found.status, failure);
    }
    return found.status;
}

}  // namespace

int main(int argc, char** argv) {
    Daemon::forgetCaller();
    speakCallersLanguage();
    settings().programName = "kiv-list";
    ListRequest request;
    try {
        request = parseListOptions(argc, argv);
    } catch (const std::exception& error) {
        return fail(EX_USAGE, error.what());
    }
    try {
        return request.action == Action::Work ? list(request) : answer(request.action, listHelp());
    } catch (const std::exception& error) {
        return fail(EX_OSERR, error.what());
    }
}
