#include "container/network.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <stdexcept>
#include <utility>
#include <vector>

#include "config/configuration.h"
#include "container/default_route.h"
#include "container/packet_rules.h"
#include "util/external_command.h"
#include "util/string_util.h"

namespace {

constexpr const char* kContainerInterface = "veth0";
constexpr useconds_t kLookInterval = 20'000;  // microseconds
constexpr int kLooks = 50;
/// Of one rule: an iptables that always succeeds must not keep start in a loop.
constexpr int kMostCopies = 16;
constexpr std::int32_t kCannotRun = 255;  // the runner's result for a missing tool

/// A host tool and its arguments.
struct ToolCall {
    std::string program;
    std::list<std::string> arguments;
};

/// True when the tool ended with status 0. The runner has reported any other outcome.
bool run(ToolCall call) {
    return ExternalCommand(std::move(call.program), std::move(call.arguments)).execute() == 0;
}

/// Runs a tool without showing its output.
std::int32_t runQuietly(ToolCall call) {
    ExternalCommand command(std::move(call.program), std::move(call.arguments));
    std::string output;
    std::string errors;
    command.setStdout(&output);
    command.setStderr(&errors);
    return command.execute();
}

bool interfaceExists(const std::string& name) {
    struct stat status {};
    return ::stat(("/sys/class/net/" + name).c_str(), &status) == 0;
}

ToolCall ip(std::list<std::string> arguments) {
    return {configuration().ipCommand, std::move(arguments)};
}

ToolCall iptables(const PacketRule& rule, const char* action) {
    return {configuration().iptablesCommand, rule.arguments(action)};
}

ToolCall sysctl(const std::string& assignment) {
    return {configuration().sysctlCommand, {"-q", "-w", assignment}};
}

/// Lets the pair carry loopback addresses, which connections to the database need.
ToolCall routeLocalnet(const std::string& interface) {
    std::string setting = "net/ipv4/conf/" + interface + "/route_localnet=1";
    // a dot in the name would separate directories, so slashes separate them then, sysctl(8)
    if (interface.find('.') == std::string::npos) {
        std::replace(setting.begin(), setting.end(), '/', '.');
    }
    return sysctl(setting);
}

LeftRules removeCopies(const PacketRule& rule) {
    for (int copy = 0; copy < kMostCopies; ++copy) {
        const auto result = runQuietly(iptables(rule, "-D"));
        if (result == kCannotRun) {
            return LeftRules::NoTool;
        }
        if (result != 0) {
            return meansRuleIsGone(result) ? LeftRules::None : LeftRules::Unknown;
        }
    }
    return LeftRules::None;
}

}  // namespace

std::string hostInterfaceName(const std::string& userName) {
    return "veth-" + shortNameOf(userName);
}

std::string hostInterfaceName(ContainerHandle& handle) {
    return "veth-" + handle.getShortName();
}

std::string peerInterfaceName(const std::string& userName) {
    return "vpeer-" + shortNameOf(userName);
}

std::string hostEndOf(const IpNetwork& network) {
    return network.getAddress(1);
}

std::string containerEndOf(const IpNetwork& network) {
    return network.getAddress(2);
}

ContainerLink planLink(ContainerHandle& handle, const IpNetwork& network) {
    return {hostInterfaceName(handle), peerInterfaceName(handle.userName), hostEndOf(network),
            containerEndOf(network), network.bitmask()};
}

void checkInterfaceNames(const ContainerLink& link) {
    const auto taken = [&link] {
        return interfaceExists(link.hostInterface) || interfaceExists(link.peerInterface);
    };
    for (int look = 0; taken(); ++look) {
        if (look == kLooks) {
            // deliberate: names the host interface even when only the peer is left over
            throw std::runtime_error(link.hostInterface + ": already exists!");
        }
        ::usleep(kLookInterval);
    }
}

LeftRules removeLeftNetwork(const std::string& hostInterface,
                            const std::optional<std::string>& hostAddress) {
    removeLeftPair(hostInterface);
    const LeftRules reject = removeCopies(rejectRule(hostInterface));
    if (!hostAddress) {
        return LeftRules::Unknown;
    }
    const LeftRules database = removeCopies(databaseRule(hostInterface, *hostAddress));
    return reject == LeftRules::None ? database : reject;
}

void removeLeftPair(const std::string& hostInterface) {
    if (interfaceExists(hostInterface)) {
        // may fail: the kernel may be removing it now, with the network namespace of its other end
        runQuietly(ip({"link", "delete", hostInterface}));
    }
}

std::string leftRulesText(const std::string& hostInterface) {
    return hostInterface + ": cannot remove the packet rules of an interrupted run";
}

bool setUpHostSide(const ContainerLink& link, pid_t child) {
    const std::string mtu = std::to_string(detectDefaultMtu());
    const std::string address = link.hostAddress + "/" + std::to_string(link.prefixLength);
    const std::string& host = link.hostInterface;
    const std::string& peer = link.peerInterface;
    const ToolCall calls[] = {
        // sets the MTU of the peer only; the last call sets that of the host's end
        ip({"link", "add", host, "type", "veth", "peer", "name", peer, "mtu", mtu}),
        ip({"link", "set", peer, "netns", std::to_string(child)}),
        routeLocalnet(host),
        iptables(databaseRule(host, link.hostAddress), "-I"),
        iptables(rejectRule(host), "-A"),
        ip({"addr", "add", address, "dev", host}),
        ip({"link", "set", host, "up", "mtu", mtu}),
    };
    for (const ToolCall& call : calls) {
        run(call);  // a failure does not make the others useless
    }
    return !interfaceExists(peer);
}

bool setUpContainerSide(const ContainerLink& link, std::optional<gid_t> group) {
    const std::string address = link.containerAddress + "/" + std::to_string(link.prefixLength);
    const std::string& host = link.hostAddress;
    std::vector<ToolCall> calls = {
        ip({"link", "set", "dev", link.peerInterface, "name", kContainerInterface}),
        ip({"addr", "add", address, "dev", kContainerInterface}),
        ip({"link", "set", kContainerInterface, "up"}),
        ip({"link", "set", "lo", "up"}),
        ip({"route", "add", "default", "via", host}),
        routeLocalnet(kContainerInterface),
    };
    if (group) {
        // lets the account's group use ICMP echo sockets without privileges, icmp(7)
        calls.push_back(
            sysctl(StringUtil::sprintf("net.ipv4.ping_group_range=%u %u", *group, *group)));
    }
    // the container's 127.0.0.1:3306 is redirected to the host's end of the pair
    calls.push_back(iptables(loopbackMasqueradeRule(host, kContainerInterface), "-A"));
    calls.push_back(iptables(loopbackDatabaseRule(host), "-A"));
    for (const ToolCall& call : calls) {
        if (!run(call)) {
            return false;
        }
    }
    return true;
}
