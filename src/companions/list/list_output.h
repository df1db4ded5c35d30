// How kiv-list shows accounts: as JSON for programs, as a table for people.
#pragma once

#include <string>
#include <vector>

#include "companions/list/account_list.h"

/// One array of objects with the documented keys, in their order. Bytes of a name that are not
/// UTF-8 become U+FFFD, which JSON has no other way for.
std::string jsonOf(const std::vector<ListedAccount>& accounts);

/// Columns are as wide as their texts are on a terminal.
std::string tableOf(const std::vector<ListedAccount>& accounts);
