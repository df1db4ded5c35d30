// Checks a configuration file, kiv.conf(5), against the host's paths and the container library.
#pragma once

#include <string>

#include "companions/check/findings.h"

/// Appends the findings in the order of the lines. Throws std::runtime_error when the file cannot
/// be read.
void checkConfiguration(const std::string& path, Findings& findings);
