#include "container/set_up_child.h"

#include <sched.h>
#include <sysexits.h>

#include <cstdlib>
#include <exception>

#include "container/each_account.h"
#include "util/errors.h"
#include "util/settings.h"

namespace {

/// Returns the exit status. Throws std::runtime_error when there is no view that may be entered.
int setUp(const SetUpPlan& plan, const RunMark& mark) {
    int status = EXIT_SUCCESS;
    if ((plan.flags & CLONE_NEWNET) != 0) {
        const auto group = plan.account ? std::optional(plan.account->gid) : std::nullopt;
        if (!setUpContainerSide(plan.link, group)) {
            status = EX_OSERR;
        }
    }
    if ((plan.flags & CLONE_NEWNS) != 0) {
        buildRootFilesystem(plan.userName, plan.account, plan.pinned);
    }
    // a parent that died before it had pinned everything also releases this process; the mark stays
    // then
    if (mayClear(mark.read())) {
        mark.clear();
    }
    return status;
}

}  // namespace

void runSetUpChild(const SetUpPlan& plan, const RunMark& mark) noexcept {
    int status = EX_OSERR;
    try {
        status = setUp(plan, mark);
    } catch (const std::exception& error) {
        // in the parent's format: with -a each line names its account
        const bool all = userName() == nullptr;
        report(std::string(programName()) + ": " +
               (all ? failureLine(plan.userName, error) : error.what()));
    }
    std::exit(status);
}
