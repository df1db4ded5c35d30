// Forwarding, packet rules and interfaces.
#pragma once

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"

/// Runs iptables(8), ip6tables(8), nft(8) and ip(8) to read; changes nothing.
void checkNetwork(const HostAccounts& accounts, Findings& findings);
