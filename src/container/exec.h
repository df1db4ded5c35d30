// The exec command: this process becomes the account's shell in the account's container.
#pragma once

#include "container/container_handle.h"

/// Does not return when it succeeds. Throws std::runtime_error; the process may then have been
/// moved into the container in part, and must end.
void execCommand(const char* user);

/// The part that works on the handle: executes the shell in this process, throws, or ends the
/// process with 255 when the shell cannot be run. Nothing is forked.
[[noreturn]] void enterContainerShell(ContainerHandle& handle);
