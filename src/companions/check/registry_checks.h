// What is wrong with an account registry, as far as the file, the password database and the host's
// networks show it.
#pragma once

#include <string>
#include <vector>

#include "companions/check/findings.h"
#include "companions/check/host_networks.h"

/// Adds what it finds, in the order of the lines; `used` are the host's networks. Throws
/// std::runtime_error when the file or the password database cannot be read.
void checkRegistry(const std::string& path, const std::vector<HostNetwork>& used,
                   Findings& findings);
