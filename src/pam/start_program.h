// Starts a stopped container from within another program.
#pragma once

#include <string>

/// Runs "kivctl start USER" and waits for it. A separate program, because a start forks, changes
/// signal handling and prints. Throws std::runtime_error with the program's error output when it
/// fails.
void runStart(const std::string& user);
