// The command line of kiv-check.
#pragma once

#include <optional>
#include <string>

#include "companions/command_line.h"

struct CheckRequest {
    Action action = Action::Work;
    std::optional<std::string> configuration;  ///< option -c
    std::optional<std::string> registry;       ///< option -r
    bool host = false;
    bool json = false;
    bool quiet = false;   ///< option -q: leave out notes
    bool strict = false;  ///< notes count for the exit status
};

/// Throws std::runtime_error with the translated message when the command line is not understood.
/// May be called again with another vector.
CheckRequest parseCheckOptions(int argc, char** argv);

/// The text for `--help`, in the caller's language.
std::string checkHelp();
