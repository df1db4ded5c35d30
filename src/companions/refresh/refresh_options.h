// The command line of kiv-refresh.
#pragma once

#include <string>

#include "companions/command_line.h"
#include "companions/refresh/refresh_containers.h"

struct RefreshRequest {
    Action action = Action::Work;
    const char* user = nullptr;        ///< not owned; null for all (-a)
    const char* configFile = nullptr;  ///< not owned; null for the default
    Refresh what = Refresh::NewView;
    bool showSteps = false;
};

/// Options may be in any order, before and after the user. Throws std::runtime_error with the
/// translated message when the command line is not understood. May be called again with another
/// vector.
RefreshRequest parseRefreshOptions(int argc, char** argv);

/// The text for `--help`, in the caller's language.
std::string refreshHelp();
