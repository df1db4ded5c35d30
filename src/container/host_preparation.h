// What all containers of a host share: the runtime directory and source NAT. Nothing of it is
// removed by this program.
#pragma once

#include "container/container_handle.h"

/// Makes the runtime directory a private mount of mode 0700 and, on the run that creates or first
/// privatises it, ensures the source-NAT rule; a second run changes nothing. Several starts at once
/// end like one after another; a start that finds the directory private waits for nobody's tools.
/// Throws std::runtime_error; what was changed before stays.
void prepareHost(const ContainerHandle& handle);
