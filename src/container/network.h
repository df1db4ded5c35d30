// Connects a container's network namespace to the host: a pair of interfaces (veth(4)), addresses,
// routes and the packet rules on both ends.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "container/container_handle.h"
#include "util/ip_network.h"

/// The names and addresses of one container's link.
struct ContainerLink {
    std::string hostInterface;     ///< "veth-" + short name, stays on the host
    std::string peerInterface;     ///< "vpeer-" + short name, until it is renamed inside
    std::string hostAddress;       ///< address 1 of the account's network
    std::string containerAddress;  ///< address 2 of the same
    unsigned prefixLength = 0;
};

/// The host's end of the pair: "veth-" + short name.
std::string hostInterfaceName(const std::string& userName);
std::string hostInterfaceName(ContainerHandle& handle);

/// The container's end before it is renamed inside: "vpeer-" + short name.
std::string peerInterfaceName(const std::string& userName);

/// The pair's addresses: address 1 of the account's network for the host, address 2 for the
/// container. Both throw std::runtime_error when the network is too small.
std::string hostEndOf(const IpNetwork& network);
std::string containerEndOf(const IpNetwork& network);

/// The names and addresses for the account. Throws std::runtime_error when the network is too small
/// for both addresses.
ContainerLink planLink(ContainerHandle& handle, const IpNetwork& network);

/// Throws std::runtime_error host interface + ": already exists!" when the host has one of the two
/// interfaces. The kernel removes the pair of a stopped container a moment after its last process
/// ends, so the check is repeated for up to one second.
void checkInterfaceNames(const ContainerLink& link);

/// Whether packet rules of an interrupted run are left.
enum class LeftRules {
    None,
    Unknown,  ///< iptables(8) failed, or the address is not known
    NoTool,   ///< the host has no iptables(8)
};

/// Removes what an interrupted run left of a network that nothing holds any more: every copy of the
/// packet rules, and the interface pair. Prints nothing: usually there is nothing to remove.
[[nodiscard]] LeftRules removeLeftNetwork(const std::string& hostInterface,
                                          const std::optional<std::string>& hostAddress);

/// Removes the interface pair if both ends are on the host.
void removeLeftPair(const std::string& hostInterface);

/// The message for the case that rules may be left.
std::string leftRulesText(const std::string& hostInterface);

/// Sets up the host's end of the pair. Runs in the parent while the child waits. A failed command
/// is reported on standard error and the next one still runs. False when the container's end is
/// still on the host.
[[nodiscard]] bool setUpHostSide(const ContainerLink& link, pid_t child);

/// Sets up the container's end. Runs in the child. Returns false at the first command that fails.
/// Without a group (no password entry) net.ipv4.ping_group_range, icmp(7), stays as it is.
bool setUpContainerSide(const ContainerLink& link, std::optional<gid_t> group);
