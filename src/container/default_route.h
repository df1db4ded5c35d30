// The interface of the host's default route. The source NAT rule asks ip(8) and cannot do without
// an answer; the containers' MTU comes from the kernel's table and has a default.
#pragma once

#include <string>

/// The interface of the default route as ip(8) prints it. Throws std::runtime_error when ip fails
/// or prints none.
std::string detectDefaultInterface();

inline constexpr const char* kRouteTable = "/proc/net/route";

/// The MTU of the first default route's interface in bytes; 1500 whenever it cannot be found.
int detectDefaultMtu(const char* routeTable = kRouteTable);
