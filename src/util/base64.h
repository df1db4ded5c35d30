// Base64 text of bytes, RFC 4648.
#pragma once

#include <string>
#include <vector>

class Base64 {
public:
    /// Encodes the bytes. `urlSafe` selects the alphabet with "-" and "_" and omits the padding, so
    /// that the text can be part of a file or interface name; otherwise "+", "/" and padding "=". A
    /// newline follows every `lineLength` characters except the last; 0 means no line breaks.
    static std::string encode(const std::vector<unsigned char>& data, bool urlSafe,
                              unsigned char lineLength);
};
