// Digests of short texts.
#pragma once

#include <string>
#include <vector>

class Hash {
public:
    /// The numbers are lasting: names on hosts derive from them.
    enum Algorithm : int { Sha256 = 1 };

    /// The digest's bytes. Throws std::runtime_error for an algorithm that there is not.
    static std::vector<unsigned char> hash(const std::string& data, Algorithm algorithm);
};
