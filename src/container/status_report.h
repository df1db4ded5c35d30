// What the status command prints: one account's report, or the table of all. Panels read both:
// neither changes with the width of the terminal.
#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "container/container_status.h"

/// A line for each thing that is known. A missing limit is left out here, and shown as infinite in
/// the table.
void printStatus(const ContainerStatus& status);

/// The table, also of no account. Columns are as wide as their texts are in bytes; a percentage of
/// five digits and more makes its own line longer.
void printStatusTable(const std::list<ContainerStatus>& statuses);

/// current × 100 / limit in signed 64-bit arithmetic, truncated towards zero, in decimal: a product
/// that does not fit wraps. `limit` is greater than 0.
std::string percentage(std::int64_t current, std::int64_t limit);
