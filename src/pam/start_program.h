// Starting a stopped container from within another program.
#pragma once

#include <string>

/// Runs "kivctl start USER" and waits for it. A program of its own, because a start forks, takes
/// over signals and prints. Throws std::runtime_error with what it said when it failed.
void runStart(const std::string& user);
