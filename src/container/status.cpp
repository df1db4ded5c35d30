#include "container/status.h"

#include <list>
#include <stdexcept>
#include <string>
#include <utility>

#include "container/container_handle.h"
#include "container/container_status.h"
#include "container/each_account.h"
#include "container/status_report.h"
#include "util/errors.h"
#include "util/output.h"

void statusCommand(const char* user) {
    std::list<ContainerStatus> statuses;
    const std::string failures = forEachAccount(user, [&statuses](const AccountEntry& account) {
        progress("collecting status for container: " + account.name);
        const ContainerHandle handle(account.name);
        ContainerStatus status(handle);
        collectStatus(status);
        status.handle = nullptr;  // the handle is destroyed before the next account
        statuses.push_back(std::move(status));
    });
    if (user != nullptr) {
        if (statuses.size() != 1) {
            throw std::runtime_error("Unexpected size of status list");
        }
        printStatus(statuses.front());
        return;
    }
    printStatusTable(statuses);
    if (!failures.empty()) {
        throw std::runtime_error(failures);
    }
}
