// The system calls by name, with their numbers: those that libseccomp knew when this was built.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

/// A table by which the kernel numbers system calls.
struct SystemCallTable {
    const char* name;            ///< "i386", "x32" or "arm"; empty for the machine's own
    std::uint32_t architecture;  ///< AUDIT_ARCH_*; of x32 one without the bit for 64 bits
};

/// How many tables the machine has. The first is its own.
std::size_t countOfTables();
const SystemCallTable& systemCallTable(std::size_t index);

/// True for the tables that a machine can have in addition to its own: i386, x32, arm. This
/// machine may lack them.
bool isSystemCallTable(const std::string& name);

/// True for a call of any architecture.
bool isSystemCall(const std::string& name);

/// The call's number on the table of that index. Nothing where the table does not have the call or
/// has it only behind a number that several calls share.
std::optional<std::uint32_t> systemCallNumber(const std::string& name, std::size_t table);
