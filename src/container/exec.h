// The exec command: this process becomes the account's shell in the account's container.
#pragma once

#include "container/container_handle.h"

/// Does not return on success. Throws std::runtime_error; the process may then be partly inside the
/// container and must end.
void execCommand(const char* user);

/// The same for an account that has been checked: executes the shell in this process, without a
/// fork. Throws like execCommand; ends the process with status 255 when the shell cannot be run.
[[noreturn]] void enterContainerShell(ContainerHandle& handle);
