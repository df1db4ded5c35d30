// The output of the status command: one account's report, or the table of all. Panels parse both,
// so neither depends on the terminal's width.
#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "container/container_status.h"

/// Prints one line per known figure. A missing limit is left out here; the table shows it as
/// infinite.
void printStatus(const ContainerStatus& status);

/// Prints the table, even without accounts. Columns are as wide as their longest text in bytes; a
/// percentage of five or more digits makes its line longer.
void printStatusTable(const std::list<ContainerStatus>& statuses);

/// current × 100 / limit in signed 64-bit arithmetic, truncated towards zero, in decimal. A product
/// that does not fit wraps around. `limit` must be greater than 0.
std::string percentage(std::int64_t current, std::int64_t limit);
