#include "companions/check/host_networks.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <charconv>

#include "container/default_route.h"
#include "util/errors.h"
#include "util/line_reader.h"
#include "util/scope_guard.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

AddressRange rangeOf(std::uint32_t address, std::uint32_t mask) {
    return {address & mask, address | ~mask};
}

std::uint32_t addressOf(const sockaddr* address) {
    // getifaddrs(3): sockaddr_in where the family is AF_INET
    const auto* const internet = reinterpret_cast<const sockaddr_in*>(address);
    return ntohl(internet->sin_addr.s_addr);
}

/// The table has addresses as the kernel keeps them, in network byte order.
std::uint32_t routeField(std::string_view text) {
    std::uint32_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return ntohl(value);
}

}  // namespace

std::vector<HostNetwork> readRoutes(const std::string& table) {
    std::vector<HostNetwork> networks;
    LineReader routes(table);
    std::string line;
    routes.next(line);  // the column header
    while (routes.next(line)) {
        WordReader words(line, kWhiteSpace);
        const std::string interface(words.next());
        const std::uint32_t destination = routeField(words.next());
        for (int skipped = 0; skipped < 5; ++skipped) {  // gateway to metric
            words.next();
        }
        const std::uint32_t mask = routeField(words.next());
        if (mask != 0) {
            networks.push_back({rangeOf(destination, mask), interface});
        }
    }
    return networks;
}

std::vector<HostNetwork> readHostNetworks() {
    std::vector<HostNetwork> networks = readRoutes(kRouteTable);
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0) {
        throw systemError("cannot read the host's addresses: ");
    }
    const ScopeGuard release([first] { ::freeifaddrs(first); });
    for (const ifaddrs* found = first; found != nullptr; found = found->ifa_next) {
        if (found->ifa_addr != nullptr && found->ifa_addr->sa_family == AF_INET &&
            found->ifa_netmask != nullptr) {
            networks.push_back({rangeOf(addressOf(found->ifa_addr), addressOf(found->ifa_netmask)),
                                found->ifa_name});
        }
    }
    return networks;
}
