// Whether accounts are counted, and the limits that were set are in force.
#pragma once

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

void checkLimits(const HostAccounts& accounts, Findings& findings);
