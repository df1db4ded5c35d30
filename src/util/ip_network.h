// IPv4 addresses and networks as the registry writes them.
#pragma once

#include <cstdint>
#include <string>

/// One address. A plain value.
class IpAddress {
public:
    /// `value` is in host byte order.
    explicit IpAddress(std::uint32_t number) : value(number) {}

    /// In host byte order.
    std::uint32_t number() const { return value; }

    /// Dotted-quad form without a prefix length.
    operator std::string() const;  // NOLINT(google-explicit-constructor): a conversion by design

private:
    std::uint32_t value;
};

/// One network. A plain value.
class IpNetwork {
public:
    /// Parses four decimal numbers and a prefix length, such as "100.64.0.4/30"; host bits are
    /// masked away. Signs, blanks and superfluous leading zeros are refused. Throws
    /// std::runtime_error "malformed network '…'" for any other text, also an empty one.
    explicit IpNetwork(const std::string& text);

    /// The prefix length, 0 to 32.
    unsigned bitmask() const { return prefixLength; }

    /// The network address plus `index`. Throws std::runtime_error, naming network and index, when
    /// that lies beyond the network's last address.
    IpAddress getAddress(unsigned long index) const;

private:
    std::uint32_t network = 0;
    unsigned prefixLength = 0;
};
