// Digests of short texts.
#pragma once

#include <string>
#include <vector>

class Hash {
public:
    /// Never change an algorithm: names of interfaces on existing hosts derive from its digests.
    enum Algorithm : int { Sha256 = 1 };

    /// The digest's bytes. Throws std::runtime_error for an unknown algorithm.
    static std::vector<unsigned char> hash(const std::string& data, Algorithm algorithm);
};
