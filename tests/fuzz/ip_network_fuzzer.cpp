// Networks as text, compared with the C library's parser of addresses.
#include <arpa/inet.h>

#include <optional>
#include <stdexcept>

#include "input.h"
#include "util/ip_network.h"

namespace {

struct Parsed {
    std::uint32_t address;
    unsigned length;
};

std::optional<Parsed> parseSimply(const std::string& text) {
    const auto slash = text.find('/');
    in_addr address{};
    if (slash == std::string::npos || text.find('\0') != std::string::npos ||
        ::inet_pton(AF_INET, text.substr(0, slash).c_str(), &address) != 1) {
        return std::nullopt;
    }
    for (unsigned length = 0; length <= 32; ++length) {
        if (text.substr(slash + 1) == std::to_string(length)) {
            return Parsed{ntohl(address.s_addr), length};
        }
    }
    return std::nullopt;
}

std::string addressText(std::uint32_t address) {
    const in_addr raw{htonl(address)};
    char text[INET_ADDRSTRLEN] = "";
    return ::inet_ntop(AF_INET, &raw, text, sizeof text);
}

bool hasAddress(const IpNetwork& network, unsigned long index, const std::string& expected) {
    try {
        return std::string(network.getAddress(index)) == expected;
    } catch (const std::runtime_error&) {
        return false;
    }
}

void compare(const IpNetwork& network, const Parsed& expected) {
    const unsigned long size = 1UL << (32 - expected.length);
    const auto base = static_cast<std::uint32_t>(expected.address & ~(size - 1));
    demand(network.bitmask() == expected.length, "the prefix length");
    for (const unsigned long index : {0UL, 1UL, 2UL, size - 1}) {
        const std::string text = addressText(static_cast<std::uint32_t>(base + index));
        demand(hasAddress(network, index, text) == (index < size), "an address of the network");
    }
    demand(!hasAddress(network, size, addressText(base)), "no address beyond the network");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = Input(data, size).all();
    const auto expected = parseSimply(text);
    std::optional<IpNetwork> network;
    try {
        network.emplace(text);
    } catch (const std::runtime_error& error) {
        const std::string message = "malformed network '" + text + "'";
        demand(message.c_str() == std::string(error.what()), "the error's text");
    }
    demand(network.has_value() == expected.has_value(), "the same texts are networks");
    if (expected) {
        compare(*network, *expected);
    }
    return 0;
}
