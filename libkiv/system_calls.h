// The names and numbers of system calls, as known to the libseccomp of the build.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// A table of system-call numbers: the kernel has one per architecture that the machine can run.
struct SystemCallTable {
    const char* name;            ///< "i386", "x32" or "arm"; empty for the machine's own
    std::uint32_t architecture;  ///< AUDIT_ARCH_*; for x32 without the bit for 64 bits
};

/// How many tables the machine has. The first is its own.
std::size_t countOfTables();

/// The table of an index below countOfTables(). Valid as long as the process.
const SystemCallTable& systemCallTable(std::size_t index);

/// True for the tables that a machine can have in addition to its own: i386, x32, arm. This
/// machine may lack them.
bool isSystemCallTable(const std::string& name);

/// True for a call of any architecture, even if this machine has no number for it.
bool isSystemCall(const std::string& name);

/// The call's number in the table `table`, an index below countOfTables(). Nothing when the table
/// lacks the call or has it only through a number that several calls share.
std::optional<std::uint32_t> systemCallNumber(const std::string& name, std::size_t table);
