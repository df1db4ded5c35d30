// What is wrong with an account registry, as far as the file, the password database and the host's
// networks show it.
#pragma once

#include <string>

#include "companions/check/findings.h"

/// Adds what it finds, in the order of the lines. Throws std::runtime_error when the file, the
/// password database or the host's networks cannot be read.
void checkRegistry(const std::string& path, Findings& findings);
