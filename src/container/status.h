// The status command: reports how containers are doing and changes nothing on the host.
#pragma once

/// Prints the report of `user`, or with null the table of every configured account: those that
/// could not be read are missing in it and are thrown together after it. Throws std::runtime_error,
/// and for a named account what collectStatus throws.
void statusCommand(const char* user);
