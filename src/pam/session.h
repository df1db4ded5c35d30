// Opens a session of an account in its container.
#pragma once

#include "container/container_handle.h"

/// True when the account's container can be entered. First waits for a container that is being
/// started or stopped, as long as joinContainer does. Throws std::runtime_error when that cannot be
/// found out.
bool isRunning(const ContainerHandle& handle);

/// Checks in advance what enterSession needs: that the container library and its configuration can
/// be loaded. Throws std::runtime_error.
void checkLibrary(ContainerHandle& handle);

/// Moves this process into the container, where it stays root, with its own capabilities, until the
/// program changes to the account's user. Call checkLibrary first. Throws std::runtime_error; the
/// process may then be partly inside and must not become the account's.
void enterSession(ContainerHandle& handle);
