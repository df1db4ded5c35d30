// The system-call filter as a program for seccomp(2).
#pragma once

#include <linux/filter.h>

#include <vector>

#include "libkiv/system_call_rules.h"

/// A denied table is answered as it does least harm: i386 and arm by the end of the process,
/// because a program whose exit(2) is refused as well may run for ever; x32 by ENOSYS, as from a
/// kernel without it, because 64-bit programs try its numbers. A call by a table that is neither
/// open nor known ends the process.
std::vector<sock_filter> filterProgram(const SystemCallRules& rules);
