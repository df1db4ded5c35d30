// The loop over accounts that start, stop and status share.
#pragma once

#include <exception>
#include <functional>
#include <string>

#include "config/account_registry.h"

using AccountAction = std::function<void(const AccountEntry& account)>;

/// How a run over all accounts reports the failure of one: user name + ": " + the error's text,
/// with control characters escaped.
std::string failureLine(const std::string& userName, const std::exception& error);

/// Calls `action` for the account `user`, or for every configured account when `user` is null. For
/// a named account, exceptions of `action` are passed on unchanged. For all accounts, the loop
/// continues after a failure and returns one failureLine per failed account, joined by newlines;
/// empty when none failed. Throws what selectAccounts throws.
///
std::string forEachAccount(const char* user, const AccountAction& action);
