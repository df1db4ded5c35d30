// Checks each account's home and container.
#pragma once

#include <string>

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

/// Reports problems with homes and their tmp directories, incomplete and orphaned containers,
/// outdated views, and marks that are left. `configuration` is the file whose changes make a view
/// outdated.
void checkContainers(const HostAccounts& accounts, const std::string& configuration,
                     Findings& findings);
