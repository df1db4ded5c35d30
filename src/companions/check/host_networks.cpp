#include "companions/check/host_networks.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "companions/json.h"
#include "config/configuration.h"
#include "util/errors.h"
#include "util/external_command.h"
#include "util/scope_guard.h"

namespace {

// Route types of ip-route(8) that refuse packets. A more specific route takes precedence over them.
// A host may have one for 100.64.0.0/10, for example, so that packets to its unused part do not
// leave through the uplink.
constexpr std::array<std::string_view, 4> kRefusals = {"blackhole", "prohibit", "throw",
                                                       "unreachable"};

// prefix length: VPNs split the default route into 0.0.0.0/1 and 128.0.0.0/1
constexpr unsigned kHalfOfAll = 1;

std::uint32_t addressOf(const sockaddr* address) {
    // getifaddrs(3): the family AF_INET has a sockaddr_in
    const auto* const internet = reinterpret_cast<const sockaddr_in*>(address);
    return ntohl(internet->sin_addr.s_addr);
}

/// The interface of a route; a route over several interfaces has a list instead.
std::string interfaceOf(const Json& route) {
    const Json hops = route.value("nexthops", Json::array());
    return route.value("dev", hops.empty() ? "" : hops.front().value("dev", ""));
}

/// The network of a route; nothing for a default route and for one that refuses packets.
std::optional<HostNetwork> networkOf(const Json& route) {
    const std::string destination = route.value("dst", "default");
    const std::string type = route.value("type", "unicast");
    if (destination == "default" ||
        std::find(kRefusals.begin(), kRefusals.end(), type) != kRefusals.end()) {
        return std::nullopt;
    }
    const bool isOneAddress = destination.find('/') == std::string::npos;
    const IpNetwork network(destination + (isOneAddress ? "/32" : ""));
    if (network.bitmask() <= kHalfOfAll) {
        return std::nullopt;
    }
    return HostNetwork{rangeOf(network), interfaceOf(route)};
}

/// The routes of all tables: a rule of ip-rule(8) can put any table before the main one.
std::string listRoutes() {
    ExternalCommand query(configuration().ipCommand,
                          {"-4", "-json", "route", "show", "table", "all"});
    std::string output;
    query.setStdout(&output);
    if (query.execute() != 0) {
        throw std::runtime_error("cannot list the host's routes");
    }
    return output;
}

}  // namespace

AddressRange rangeOf(const IpNetwork& network) {
    const std::uint32_t first = network.getAddress(0).number();
    const unsigned prefix = network.bitmask();
    return {first, first | (prefix == 32 ? 0 : ~std::uint32_t{0} >> prefix)};
}

std::vector<HostNetwork> readRoutes(const std::string& routes) {
    const Json list = Json::parse(routes, nullptr, /*allow_exceptions=*/false);
    if (!list.is_array()) {
        throw std::runtime_error("cannot understand the list of the host's routes");
    }
    std::vector<HostNetwork> networks;
    for (const Json& route : list) {
        if (auto network = networkOf(route)) {
            networks.push_back(std::move(*network));
        }
    }
    return networks;
}

std::vector<HostNetwork> readHostNetworks() {
    std::vector<HostNetwork> networks = readRoutes(listRoutes());
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        throw systemError("cannot read the host's addresses: ");
    }
    const ScopeGuard release([first] { ::freeifaddrs(first); });
    for (const ifaddrs* found = first; found != nullptr; found = found->ifa_next) {
        if (found->ifa_addr != nullptr && found->ifa_addr->sa_family == AF_INET &&
            found->ifa_netmask != nullptr) {
            const std::uint32_t address = addressOf(found->ifa_addr);
            const std::uint32_t mask = addressOf(found->ifa_netmask);
            networks.push_back({{address & mask, address | ~mask}, found->ifa_name});
        }
    }
    return networks;
}
