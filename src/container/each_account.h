// The loop over accounts that start, stop and status share.
#pragma once

#include <exception>
#include <functional>
#include <string>

#include "config/account_registry.h"

using AccountAction = std::function<void(const AccountEntry& account)>;

/// One account's failure in a run over all: user name + ": " + the error's text.
std::string failureLine(const std::string& userName, const std::exception& error);

/// Calls `action` for the account `user`, or with null for every configured one. Of a named account
/// an exception travels on unchanged. Without a name the loop goes on with the next account, and
/// the result is one line per failed account, name + ": " + message, joined by newlines; empty when
/// none failed. Throws what selectAccounts throws.
///
std::string forEachAccount(const char* user, const AccountAction& action);
