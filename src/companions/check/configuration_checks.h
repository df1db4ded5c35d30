// What is wrong with a configuration file, as far as the file, the host's paths and the container
// library show it.
#pragma once

#include <string>

#include "companions/check/findings.h"

/// Adds what it finds, in the order of the lines. Throws std::runtime_error when the file cannot be
/// read.
void checkConfiguration(const std::string& path, Findings& findings);
