// Connects a container's network namespace to the host: a veth pair, addresses, routes and the
// packet rules on both ends.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "container/container_handle.h"
#include "util/ip_network.h"

/// The names and addresses of one container's link.
struct ContainerLink {
    std::string hostInterface;     ///< "veth-" + short name, stays on the host
    std::string peerInterface;     ///< "vpeer-" + short name, until the container renames it
    std::string hostAddress;       ///< number 1 of the account's network
    std::string containerAddress;  ///< number 2
    unsigned prefixLength = 0;
};

/// The host's end of the pair: "veth-" + short name.
std::string hostInterfaceName(const std::string& userName);
std::string hostInterfaceName(ContainerHandle& handle);

/// The other end, until the container renames it: "vpeer-" + short name.
std::string peerInterfaceName(const std::string& userName);

/// The pair's addresses: number 1 of the account's network, and number 2. Both throw
/// std::runtime_error when the network is too small.
std::string hostEndOf(const IpNetwork& network);
std::string containerEndOf(const IpNetwork& network);

/// Throws std::runtime_error when the network is too small for both addresses.
ContainerLink planLink(ContainerHandle& handle, const IpNetwork& network);

/// Throws std::runtime_error host interface + ": already exists!" when one of the two interfaces is
/// there. The kernel removes the pair of a stopped container a moment after its last process, so a
/// taken name is looked at again for up to one second.
void checkInterfaceNames(const ContainerLink& link);

/// What is left of the packet rules of an interrupted run.
enum class LeftRules {
    None,
    Unknown,  ///< iptables(8) has failed, or the address is not known
    NoTool,   ///< there is no iptables
};

/// Removes what an interrupted run has left of a network that nothing holds any more: every copy of
/// the packet rules, and the interface pair. Silent: that nothing is there is the usual case.
[[nodiscard]] LeftRules removeLeftNetwork(const std::string& hostInterface,
                                          const std::optional<std::string>& hostAddress);

/// Removes the interface pair, should both ends be on the host.
void removeLeftPair(const std::string& hostInterface);

/// What to say when rules may be left.
std::string leftRulesText(const std::string& hostInterface);

/// Runs in the parent while the child waits. Failures are reported by the runner, and the next
/// command follows whatever its outcome. False when the container's end is still on the host.
[[nodiscard]] bool setUpHostSide(const ContainerLink& link, pid_t child);

/// Runs in the child. The first failing command ends it and makes the result false. Without a group
/// (no password entry) the ping range is left as it is.
bool setUpContainerSide(const ContainerLink& link, std::optional<gid_t> group);
