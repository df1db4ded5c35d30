// What all containers of a host share: the runtime directory and source NAT. This program removes
// neither.
#pragma once

#include "container/container_handle.h"

/// Makes the runtime directory a private mount of mode 0700. The run that creates it, or that makes
/// it private, also ensures the source NAT rule; a second run changes nothing. Several starts at
/// once have the same result as one after another, and a start that finds the directory private
/// does not wait for another start's host tools. `handle` is the account that is started. Throws
/// std::runtime_error; what was changed before stays.
void prepareHost(const ContainerHandle& handle);
