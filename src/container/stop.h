// The stop command: ends the processes of an account's container, gently, and unpins it.
#pragma once

#include "container/container_handle.h"
#include "util/ip_network.h"

/// Stops the container of `user`, or with null of every configured account: all are attempted
/// before the failures are thrown together. Throws std::runtime_error.
void stopCommand(const char* user);

/// Stops one container. Takes two seconds when there is a process to end, and leaves the container
/// as it is when one is still there after that: this and a file that cannot be removed are
/// reported, not thrown. Throws std::runtime_error when the network has no address number 1 or the
/// processes cannot be listed.
void stopContainer(ContainerHandle& handle, const IpNetwork& network);
