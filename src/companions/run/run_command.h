// Executes a command. The exit statuses of failures are those of env(1) and timeout(1).
#pragma once

#include <string>
#include <vector>

#include "companions/run/run_environment.h"

inline constexpr int kFailed = 125;     ///< the program itself failed
inline constexpr int kCannotRun = 126;  ///< the command exists and cannot be executed
inline constexpr int kNotFound = 127;   ///< the command does not exist

/// The program to execute. `file` is a path, or a name without "/" that is searched in the PATH of
/// the environment.
struct Program {
    std::string file;
    std::vector<char*> arguments;  ///< not owned; from argument 0 on, no null at the end
};

/// Replaces the process by the program. On failure reports it and returns kCannotRun or kNotFound.
/// A file whose format the kernel does not know, such as a script without "#!", is not passed to a
/// shell.
int execute(Program& program, Environment& environment);
