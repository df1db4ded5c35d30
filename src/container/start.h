// The start command: creates the missing parts of an account's container and pins them.
#pragma once

#include "container/container_handle.h"
#include "util/ip_network.h"

/// Starts the container of `user`, or of every configured account when `user` is null: then all are
/// attempted, and the failures are thrown together. Throws std::runtime_error.
void startCommand(const char* user);

/// Starts one container; does nothing when it is running. Throws std::runtime_error; what was
/// created before the failure stays until stop removes it.
void startContainer(ContainerHandle& handle, const IpNetwork& network);
