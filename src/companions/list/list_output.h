// How kiv-list shows accounts: as JSON for programs, as a table for people.
#pragma once

#include <string>
#include <vector>

#include "companions/list/account_list.h"

/// One array of objects with the keys of kiv-list(8), in their order. Bytes of a name that are not
/// UTF-8 become U+FFFD, because JSON cannot represent them.
std::string jsonOf(const std::vector<ListedAccount>& accounts);

/// A table whose columns are as wide as their texts on a terminal.
std::string tableOf(const std::vector<ListedAccount>& accounts);
