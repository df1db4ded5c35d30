// What the kernel's accounting says of an account's processor time.
#pragma once

#include <optional>
#include <string>

/// What is not known, and a limit that there is not, is absent.
struct ProcessorTime {
    std::optional<double> used;   ///< seconds since the control group was made
    std::optional<double> limit;  ///< processors at a time: 0.5 is half of one
};

/// From cpu.stat and cpu.max of a control group's directory.
ProcessorTime processorTimeOf(const std::string& cgroup);
