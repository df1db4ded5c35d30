// Finds the processes of containers that still use what was replaced on the host.
#pragma once

#include <vector>

#include "companions/list/account_list.h"

/// Sets the old processes of each account that has a network namespace: those in its container that
/// run in an earlier view or, if the account's view is outdated, have a replaced program or library
/// mapped. Changes nothing without CAP_SYS_PTRACE, which looking at other users' processes needs,
/// see namespaces(7). Throws std::runtime_error when the host's processes cannot be listed.
void addOldProcesses(std::vector<ListedAccount>& accounts);
