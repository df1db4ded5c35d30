// Finds processes of accounts that are outside their container, in an old view, or still use
// replaced files.
#pragma once

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

/// Appends the findings. Throws std::runtime_error when the processes cannot be listed.
void checkProcesses(const HostAccounts& accounts, Findings& findings);
