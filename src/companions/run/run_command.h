// Executing a command by the rules that env(1) and timeout(1) have for exit statuses.
#pragma once

#include <string>
#include <vector>

#include "companions/run/run_environment.h"

inline constexpr int kFailed = 125;     ///< the program that was to run the command
inline constexpr int kCannotRun = 126;  ///< the command is there and cannot be executed
inline constexpr int kNotFound = 127;   ///< there is no such command

/// What is executed: `file` is a path, or a name without "/" that is looked up in PATH of the
/// environment.
struct Program {
    std::string file;
    std::vector<char*> arguments;  ///< not owned; from argument 0 on, without a null pointer
};

/// Replaces the process by the program. On failure reports it and returns kCannotRun or kNotFound.
/// No shell is tried on a file that the kernel does not know, such as a script without "#!".
int execute(Program& program, Environment& environment);
