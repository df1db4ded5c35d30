// Checks an account registry, kiv.users(5), against the password database and the host's networks.
#pragma once

#include <string>
#include <vector>

#include "companions/check/findings.h"
#include "companions/check/host_networks.h"

/// Appends the findings in the order of the lines. `used` are the host's networks. Throws
/// std::runtime_error when the file or the password database cannot be read.
void checkRegistry(const std::string& path, const std::vector<HostNetwork>& used,
                   Findings& findings);
