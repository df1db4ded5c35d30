// Checks that accounts are counted and that the limits of systemd are in force.
#pragma once

#include <string>

#include "companions/check/findings.h"
#include "companions/check/host_accounts.h"
#include "util/user_slice.h"

/// Where the kernel and systemd keep the limits; other places are for tests.
struct LimitPlaces {
    std::string hierarchy = kCgroupRoot;
    std::string systemd;  ///< prefix of /etc/systemd and the like
};

/// Appends the findings.
void checkLimits(const HostAccounts& accounts, Findings& findings, const LimitPlaces& places = {});
