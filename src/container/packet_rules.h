// The packet-filter rules that containers need on the host, and those inside them. A rule is added,
// checked and deleted from the same value, so that what stop deletes is what start has added.
#pragma once

#include <cstdint>
#include <list>
#include <string>

struct PacketRule {
    std::list<std::string> table;  ///< "-t" and the table's name; none for the filter table
    std::string chain;
    std::list<std::string> match;  ///< everything after the chain, the target included

    /// The arguments of iptables(8) for an action such as "-A", "-I", "-C" or "-D".
    std::list<std::string> arguments(const std::string& action) const;
};

/// Whether a rule is no longer there after iptables(8) has ended with `result`: it was deleted, or
/// there was none. Every other result leaves it open.
bool meansRuleIsGone(std::int32_t result);

/// Source NAT for all containers through the host's default interface.
PacketRule masqueradeRule(const std::string& defaultInterface);

/// Connections to the database's port on the host's end of the pair reach the host's loopback.
PacketRule databaseRule(const std::string& hostInterface, const std::string& hostAddress);

/// Nothing else in the containers' private range is reached through the host's input path.
PacketRule rejectRule(const std::string& hostInterface);

/// Inside a container: connections to the database's port on its own loopback go to the host's end
/// of the pair. They leave with a source address that the host can answer by the second rule.
PacketRule loopbackDatabaseRule(const std::string& hostAddress);
PacketRule loopbackMasqueradeRule(const std::string& hostAddress, const std::string& interface);
