// Whether accounts are counted, and the limits that were set are in force.
#pragma once

#include <string>

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"
#include "util/user_slice.h"

/// Where the kernel and systemd have the limits.
struct LimitPlaces {
    std::string hierarchy = kCgroupRoot;
    std::string systemd;  ///< before /etc/systemd and the like
};

void checkLimits(const HostAccounts& accounts, Findings& findings, const LimitPlaces& places = {});
