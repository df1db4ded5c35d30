// The IPv4 networks that the host uses.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util/ip_network.h"

/// A range of addresses, first and last included, in host byte order.
struct AddressRange {
    std::uint32_t first = 0;
    std::uint32_t last = 0;

    bool overlaps(const AddressRange& other) const {
        return first <= other.last && other.first <= last;
    }
};

struct HostNetwork {
    AddressRange range;
    std::string interface;
};

/// The addresses of a network, from the network address to the last one.
AddressRange rangeOf(const IpNetwork& network);

/// The networks of the interfaces' addresses, getifaddrs(3), and of the routes of all tables except
/// default routes and routes that refuse packets. Throws std::runtime_error when they cannot be
/// read.
std::vector<HostNetwork> readHostNetworks();

/// The same for a list of routes in the JSON of ip-route(8). Throws std::runtime_error when it
/// cannot be parsed.
std::vector<HostNetwork> readRoutes(const std::string& routes);
