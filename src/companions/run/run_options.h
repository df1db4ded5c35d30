// The command line of kiv-run.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "companions/command_line.h"

/// The command's terminal: its own or the caller's. AsCaller: its own when the caller is on one.
enum class Terminal { AsCaller, Own, Callers };

struct RunRequest {
    Action action = Action::Work;
    const char* user = nullptr;            ///< not owned; points into argv
    std::vector<char*> command;            ///< not owned; empty for the login shell
    std::optional<std::string> directory;  ///< option -C
    std::vector<std::string> variables;    ///< "NAME=VALUE" each, in the order of -e
    mode_t umask = 022;
    unsigned preserved = 0;  ///< number of descriptors above 2 that the command gets
    bool start = false;
    Terminal terminal = Terminal::AsCaller;  ///< AsCaller: an own one if the caller has one
};

/// Throws std::runtime_error with the translated message when the command line is not understood.
/// May be called again with another vector.
RunRequest parseRunOptions(int argc, char** argv);

/// The text for `--help`, in the caller's language.
std::string runHelp();
