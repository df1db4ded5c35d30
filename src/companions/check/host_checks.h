// Runs all checks of the host and of its containers.
#pragma once

#include <string>

#include "companions/check/findings.h"

/// Appends the findings. Throws std::runtime_error when the registry or the kernel's interfaces
/// cannot be read.
void checkHost(const std::string& registry, const std::string& configuration, Findings& findings);
