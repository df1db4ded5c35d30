// What all containers of a host share: the runtime directory, source NAT, and the default
// interface's MTU. Nothing of it is removed by this program.
#pragma once

#include "container/container_handle.h"
#include "util/file_descriptor.h"

/// Makes the runtime directory a private mount of mode 0700 and, on the run that creates or first
/// privatises it, ensures the source-NAT rule; a second run changes nothing. Throws
/// std::runtime_error; what was changed before stays. Returns the exclusive lock on the runtime
/// directory (an accounts' process cannot hold it: mode 0700), taken as soon as that directory
/// exists: keep it until the account's start has ended, so that several starts at once end like one
/// after the other. A lock that cannot be had is returned invalid and fails nothing.
[[nodiscard]] FileDescriptor prepareHost(const ContainerHandle& handle);

inline constexpr const char* kRouteTable = "/proc/net/route";

/// The MTU of the first default route's interface in bytes; 1500 whenever it cannot be found.
int detectDefaultMtu(const char* routeTable = kRouteTable);
