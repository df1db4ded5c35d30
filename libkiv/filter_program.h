// The system-call filter as a program for seccomp(2).
#pragma once

#include <linux/filter.h>

#include <span>
#include <vector>

#include "libkiv/system_call_rules.h"

/// The rules as instructions of classic BPF, bpf(2). Denied tables get the least harmful answer. A
/// call by i386 or arm ends the process, because a program whose exit(2) also fails may run for
/// ever. A call by x32 fails with ENOSYS, as on a kernel without x32, because 64-bit programs try
/// its numbers. A call by an unknown table ends the process.
std::vector<sock_filter> filterProgram(const SystemCallRules& rules);

/// The program of defaultSystemCallRules(), which is made during the build: nearly all containers
/// have these rules, and making the program takes a twenty-fifth of an exec. Valid as long as the
/// process.
std::span<const sock_filter> defaultFilterProgram();
