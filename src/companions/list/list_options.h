// The command line of kiv-list.
#pragma once

#include <string>
#include <vector>

#include "companions/command_line.h"

struct ListRequest {
    Action action = Action::Work;
    bool json = false;
    std::vector<std::string> users;  ///< empty for all accounts
};

/// Throws std::runtime_error with the translated message when the command line is not understood.
/// May be called again with another vector.
ListRequest parseListOptions(int argc, char** argv);

/// The text for `--help`, in the caller's language.
std::string listHelp();
