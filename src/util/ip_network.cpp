#include "util/ip_network.h"

#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace {

/// Removes a decimal number from the front of `text` and returns it; nothing when there is none or
/// it is greater than `highest`.
std::optional<unsigned> takeNumber(std::string_view& text, unsigned highest) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto length = static_cast<std::size_t>(end - text.data());
    const bool leadingZero = length > 1 && text.front() == '0';
    if (error != std::errc() || leadingZero || number > highest) {
        return std::nullopt;
    }
    text.remove_prefix(length);
    return number;
}

bool takeCharacter(std::string_view& text, char expected) {
    if (text.empty() || text.front() != expected) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

std::uint32_t maskOf(unsigned prefixLength) {
    return prefixLength == 0 ? 0 : ~std::uint32_t{0} << (32 - prefixLength);
}

}  // namespace

IpAddress::operator std::string() const {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string((value >> shift) & 0xff);
        text += shift > 0 ? "." : "";
    }
    return text;
}

IpNetwork::IpNetwork(const std::string& text) {
    const auto malformed = [&text] {
        return std::runtime_error("malformed network '" + text + "'");
    };
    std::string_view rest = text;
    for (const char separator : {'.', '.', '.', '/'}) {
        const auto number = takeNumber(rest, 255);
        if (!number || !takeCharacter(rest, separator)) {
            throw malformed();
        }
        network = network << 8 | *number;
    }
    const auto length = takeNumber(rest, 32);
    if (!length || !rest.empty()) {
        throw malformed();
    }
    prefixLength = *length;
    network &= maskOf(prefixLength);
}

IpAddress IpNetwork::getAddress(unsigned long index) const {
    if (index > ~maskOf(prefixLength)) {
        throw std::runtime_error("network " + std::string(IpAddress(network)) + "/" +
                                 std::to_string(prefixLength) + " has no address number " +
                                 std::to_string(index));
    }
    return IpAddress(network + static_cast<std::uint32_t>(index));
}
