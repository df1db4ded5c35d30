// The IPv4 networks that the host uses.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util/ip_network.h"

/// From one address to another, both included, in host byte order.
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

AddressRange rangeOf(const IpNetwork& network);

/// Of the interfaces' addresses and of the routes of all tables, but for default routes and those
/// that refuse. Throws std::runtime_error when they cannot be read.
std::vector<HostNetwork> readHostNetworks();

/// The same of a list of routes, in the JSON of ip-route(8).
std::vector<HostNetwork> readRoutes(const std::string& routes);
