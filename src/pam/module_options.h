// The module's arguments: the words after pam_kiv.so in a file of pam.d(5).
#pragma once

#include <string>

#include "config/account_registry.h"

struct ModuleOptions {
    std::string registry = kAccountRegistry;  ///< registry=FILE
    bool startStopped = false;                ///< stopped=start
};

/// Throws std::runtime_error for an unknown word.
ModuleOptions parseModuleOptions(int count, const char* const* words);
