// What is wrong with the host and with the containers on it.
#pragma once

#include <string>

#include "companions/check/findings.h"

/// Throws std::runtime_error when the registry or the kernel's interfaces cannot be read.
void checkHost(const std::string& registry, const std::string& configuration, Findings& findings);
