// The part of the filter that checks tables of system calls, arguments and numbers, as a program
// for seccomp(2). libseccomp cannot express it, or needs a rule for every bit.
#pragma once

#include <linux/filter.h>

#include <cstdint>
#include <string>
#include <vector>

#include "libkiv/system_call_rules.h"

/// True for the tables that a machine can have in addition to its own: i386, x32, arm. This
/// machine may lack them.
bool isSystemCallTable(const std::string& name);

/// True for a system call that libseccomp is too old to know, and that is known here by its number.
bool isNewSystemCall(const std::string& name);

/// The machine's own table and those of the others that the rules do not deny, by libseccomp's
/// numbers of architectures.
std::vector<std::uint32_t> openTables(const SystemCallRules& rules);

/// True when the program below answers the call; other calls are for libseccomp.
bool isAnsweredByProgram(const std::string& name, Answer answer);

/// A denied table is answered as it does least harm: i386 and arm by the end of the process,
/// because a program whose exit(2) is refused as well may run for ever; x32 by ENOSYS, as from a
/// kernel without it, because 64-bit programs try its numbers. A call by a table that is neither
/// open nor known ends the process.
std::vector<sock_filter> filterProgram(const SystemCallRules& rules);
