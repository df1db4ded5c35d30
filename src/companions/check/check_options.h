// The command line of kiv-check.
#pragma once

#include <optional>
#include <string>

#include "companions/command_line.h"

struct CheckRequest {
    Action action = Action::Work;
    std::optional<std::string> configuration;  ///< of -c
    std::optional<std::string> registry;       ///< of -r
    bool host = false;
    bool json = false;
    bool quiet = false;   ///< without notes
    bool strict = false;  ///< notes count
};

/// Throws std::runtime_error with the translated message when the command line is not understood.
/// May be called again with another vector.
CheckRequest parseCheckOptions(int argc, char** argv);

/// Writes the help text on standard output.
void printCheckHelp();
