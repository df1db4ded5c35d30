// The stop command: ends the processes of an account's container with SIGTERM and unpins it.
#pragma once

#include "container/container_handle.h"
#include "util/ip_network.h"

/// Stops the container of `user`, or of every configured account when `user` is null: then all are
/// attempted, and the failures are thrown together. Throws std::runtime_error.
void stopCommand(const char* user);

/// Stops one container. When there are processes it takes two seconds; if one is still there after
/// that, the container stays as it is. This, and a file that cannot be removed, is reported, not
/// thrown. Throws std::runtime_error when the network has no address 1 or the processes cannot be
/// listed.
void stopContainer(ContainerHandle& handle, const IpNetwork& network);
