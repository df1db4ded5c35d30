// An account's processor time, from the kernel's accounting (its cgroup-v2 document).
#pragma once

#include <optional>
#include <string>

/// Unknown figures and a missing limit are absent.
struct ProcessorTime {
    std::optional<double> used;   ///< seconds since the cgroup was created
    std::optional<double> limit;  ///< number of processors: 0.5 is half of one
};

/// Reads cpu.stat and cpu.max in the cgroup's directory.
ProcessorTime processorTimeOf(const std::string& cgroup);
