// The processes of accounts: outside their container, in an old view, with replaced files mapped.
#pragma once

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

/// Throws std::runtime_error when the processes cannot be listed.
void checkProcesses(const HostAccounts& accounts, Findings& findings);
