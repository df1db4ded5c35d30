// Opening a session of an account in its container.
#pragma once

#include "container/container_handle.h"

/// True when the account's container can be entered, after waiting for one that is being started or
/// stopped: as long as joinContainer does. Throws std::runtime_error when that cannot be told.
bool isRunning(const ContainerHandle& handle);

/// What of entering can fail later and be tried without entering: the container library and its
/// settings. Throws std::runtime_error.
void checkLibrary(ContainerHandle& handle);

/// Moves this process into the container, where it stays root, with its own capabilities, until the
/// program changes to the account's user. Call checkLibrary first. Throws std::runtime_error; the
/// process may then be inside in part and must not become the account's.
void enterSession(ContainerHandle& handle);
