// The status command: reports the state and resource use of containers. Changes nothing on the
// host.
#pragma once

/// Prints the report of `user`, or the table of all configured accounts when `user` is null.
/// Accounts that could not be read are missing in the table; their failures are thrown together
/// after it is printed. Throws std::runtime_error, and for a named account what collectStatus
/// throws.
void statusCommand(const char* user);
