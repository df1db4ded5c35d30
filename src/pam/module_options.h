// The words behind pam_kiv.so in a file of pam.d(5).
#pragma once

#include <string>

#include "config/account_registry.h"

struct ModuleOptions {
    std::string registry = kAccountRegistry;  ///< registry=FILE
    bool startStopped = false;                ///< stopped=start
};

/// Throws std::runtime_error for a word that is not understood.
ModuleOptions parseModuleOptions(int count, const char* const* words);
