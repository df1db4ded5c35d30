// The processes of accounts: outside their container, in an old view, with replaced files mapped.
#pragma once

#include <string>
#include <string_view>

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

/// Throws std::runtime_error when the processes cannot be listed.
void checkProcesses(const HostAccounts& accounts, Findings& findings);

/// What a line of /proc/PID/maps begins with as a name in /proc/PID/map_files: maps fills low
/// addresses up with zeros, map_files does not. Programs at fixed addresses have low ones.
std::string mapFileName(std::string_view range);
