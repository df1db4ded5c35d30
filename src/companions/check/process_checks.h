// Finds processes of accounts that are outside their container, in an old view, or still use
// replaced files.
#pragma once

#include <string>
#include <string_view>

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

/// Appends the findings. Throws std::runtime_error when the processes cannot be listed.
void checkProcesses(const HostAccounts& accounts, Findings& findings);

/// The name in /proc/PID/map_files for the address range of a line in /proc/PID/maps. maps pads low
/// addresses, which programs at fixed addresses have, with zeros; map_files does not. See
/// proc_pid_map_files(5).
std::string mapFileName(std::string_view range);
