#include "util/hash.h"

#include <array>
#include <bit>
#include <cstdint>
#include <stdexcept>

namespace {

// SHA-256: FIPS 180-4, sections 4.2.2, 5.3.3 and 6.2
constexpr std::array<std::uint32_t, 64> kRoundConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

using State = std::array<std::uint32_t, 8>;

constexpr State kInitialState = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
constexpr std::size_t kBlockSize = 64;
constexpr std::size_t kLengthSize = 8;

std::array<std::uint32_t, 64> scheduleOf(const unsigned char* block) {
    std::array<std::uint32_t, 64> words{};
    for (std::size_t i = 0; i < 16; ++i) {
        for (std::size_t byte = 0; byte < 4; ++byte) {
            words[i] = words[i] << 8 | block[i * 4 + byte];
        }
    }
    for (std::size_t i = 16; i < words.size(); ++i) {
        const std::uint32_t early = words[i - 15];
        const std::uint32_t late = words[i - 2];
        words[i] = words[i - 16] + words[i - 7] +
                   (std::rotr(early, 7) ^ std::rotr(early, 18) ^ (early >> 3)) +
                   (std::rotr(late, 17) ^ std::rotr(late, 19) ^ (late >> 10));
    }
    return words;
}

void addBlock(State& state, const unsigned char* block) {
    const auto words = scheduleOf(block);
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::uint32_t sumE = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
        const std::uint32_t choice = (e & f) ^ (~e & g);
        const std::uint32_t first = h + sumE + choice + kRoundConstants[i] + words[i];
        const std::uint32_t sumA = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
        const std::uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
        h = g;
        g = f;
        f = e;
        e = d + first;
        d = c;
        c = b;
        b = a;
        a = first + sumA + majority;
    }
    const State added = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); ++i) {
        state[i] += added[i];
    }
}

/// The data, a one bit, zeros up to eight bytes before a block's end, and the length in bits.
std::string padded(const std::string& data) {
    std::string message = data + '\x80';
    const std::size_t used = (message.size() + kLengthSize) % kBlockSize;
    message.append(used == 0 ? 0 : kBlockSize - used, '\0');
    const std::uint64_t bits = std::uint64_t{data.size()} * 8;
    for (int shift = 56; shift >= 0; shift -= 8) {
        message += static_cast<char>(bits >> shift & 0xff);
    }
    return message;
}

std::vector<unsigned char> sha256(const std::string& data) {
    const std::string message = padded(data);
    State state = kInitialState;
    for (std::size_t begin = 0; begin < message.size(); begin += kBlockSize) {
        addBlock(state, reinterpret_cast<const unsigned char*>(message.data()) + begin);
    }
    std::vector<unsigned char> digest;
    for (const std::uint32_t word : state) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            digest.push_back(static_cast<unsigned char>(word >> shift & 0xff));
        }
    }
    return digest;
}

}  // namespace

std::vector<unsigned char> Hash::hash(const std::string& data, Algorithm algorithm) {
    if (algorithm != Sha256) {
        throw std::runtime_error("unknown hash algorithm " +
                                 std::to_string(static_cast<int>(algorithm)));
    }
    return sha256(data);
}
