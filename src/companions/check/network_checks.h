// Checks forwarding, packet rules and interfaces.
#pragma once

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

/// Appends the findings. Runs iptables(8), ip6tables(8), nft(8) and ip(8) only to read; changes
/// nothing.
void checkNetwork(const HostAccounts& accounts, Findings& findings);
