// Base64 text of bytes, RFC 4648.
#pragma once

#include <string>
#include <vector>

class Base64 {
public:
    /// `urlSafe` selects the alphabet with "-" and "_" and leaves out the padding, so that the text
    /// can stand in a file or interface name; otherwise "+", "/" and "=". A newline is put after
    /// every `lineLength` characters but the last ones; 0 for no line breaks.
    static std::string encode(const std::vector<unsigned char>& data, bool urlSafe,
                              unsigned char lineLength);
};
