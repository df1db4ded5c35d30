// Each account's home and container.
#pragma once

#include <string>

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

/// Homes and their tmp, half-made and orphaned containers, old views, marks that are left.
void checkContainers(const HostAccounts& accounts, const std::string& configuration,
                     Findings& findings);
