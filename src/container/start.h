// The start command: creates what is missing of an account's container and pins it.
#pragma once

#include "container/container_handle.h"
#include "util/ip_network.h"

/// Starts the container of `user`, or with null of every configured account: all are attempted
/// before the failures are thrown together. Throws std::runtime_error.
void startCommand(const char* user);

/// Starts one container; does nothing when it is running. Throws std::runtime_error; what was
/// created by then stays until stop removes it.
void startContainer(ContainerHandle& handle, const IpNetwork& network);
