// The packet-filter rules that containers need on the host, and those inside them. A rule is added,
// checked and deleted from the same value, so that stop deletes exactly what start added.
#pragma once

#include <cstdint>
#include <list>
#include <string>

/// One rule of iptables(8), without the action. A plain value.
struct PacketRule {
    std::list<std::string> table;  ///< "-t" and the table's name; empty for the filter table
    std::string chain;
    std::list<std::string> match;  ///< everything after the chain, the target included

    /// The arguments of iptables(8) for an action such as "-A", "-I", "-C" or "-D".
    std::list<std::string> arguments(const std::string& action) const;
};

/// Whether a rule is certainly gone after "iptables -D" returned `result` (an exit status, or the
/// runner's number for a failure): it was deleted, or there was none.
bool meansRuleIsGone(std::int32_t result);

/// Source NAT for all containers through the host's default interface.
PacketRule masqueradeRule(const std::string& defaultInterface);

/// Forwards connections to the database's port on the host's end of the pair to the host's loopback
/// address.
PacketRule databaseRule(const std::string& hostInterface, const std::string& hostAddress);

/// Rejects all other connections from the pair to addresses of the containers' private range on the
/// host itself.
PacketRule rejectRule(const std::string& hostInterface);

/// Inside a container: sends connections to the database's port on the container's own loopback to
/// the host's end of the pair. The second rule gives them a source address that the host can
/// answer.
PacketRule loopbackDatabaseRule(const std::string& hostAddress);
PacketRule loopbackMasqueradeRule(const std::string& hostAddress, const std::string& interface);
