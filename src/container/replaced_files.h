// Finds processes that still use files which were replaced on the host.
#pragma once

#include <string>
#include <string_view>

/// Whether the process, a directory below /proc, has a replaced program or library mapped. Checks
/// the executable mappings, proc_pid_maps(5). False when the process has ended.
bool hasReplacedFile(const std::string& process);

/// The name in /proc/PID/map_files for the address range of a line in /proc/PID/maps. maps pads low
/// addresses, which programs at fixed addresses have, with zeros; map_files does not. See
/// proc_pid_map_files(5).
std::string mapFileName(std::string_view range);
