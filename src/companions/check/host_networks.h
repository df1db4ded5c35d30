// The IPv4 networks that the host uses.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

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

/// Of the interfaces' addresses and of all routes but the default ones. Throws std::runtime_error
/// when they cannot be read.
std::vector<HostNetwork> readHostNetworks();

/// The routes of a table as proc_pid_net(5) has it.
std::vector<HostNetwork> readRoutes(const std::string& table);
