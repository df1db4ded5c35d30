#include "companions/check/host_checks.h"

#include "companions/check/container_checks.h"
#include "companions/check/host_accounts.h"
#include "companions/check/limit_checks.h"
#include "companions/check/network_checks.h"
#include "companions/check/process_checks.h"

void checkHost(const std::string& registry, const std::string& configuration, Findings& findings) {
    const HostAccounts accounts = readHostAccounts(registry);
    checkContainers(accounts, configuration, findings);
    checkLimits(accounts, findings);
    checkNetwork(accounts, findings);
    checkProcesses(accounts, findings);
}
