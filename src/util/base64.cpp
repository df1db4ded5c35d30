#include "util/base64.h"

#include <cstdint>

namespace {

constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kUrlSafe[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

std::string broken(const std::string& text, std::size_t lineLength) {
    std::string lines;
    for (std::size_t begin = 0; begin < text.size(); begin += lineLength) {
        lines += begin > 0 ? "\n" : "";
        lines.append(text, begin, lineLength);
    }
    return lines;
}

}  // namespace

std::string Base64::encode(const std::vector<unsigned char>& data, bool urlSafe,
                           unsigned char lineLength) {
    const char* alphabet = urlSafe ? kUrlSafe : kStandard;
    std::string text;
    std::uint32_t bits = 0;
    unsigned held = 0;  // how many bits of `bits` are not written yet
    for (const unsigned char byte : data) {
        bits = (bits << 8 | byte) & 0xffff;
        for (held += 8; held >= 6; held -= 6) {
            text += alphabet[bits >> (held - 6) & 0x3f];
        }
    }
    if (held > 0) {
        text += alphabet[bits << (6 - held) & 0x3f];
    }
    while (!urlSafe && text.size() % 4 != 0) {
        text += '=';
    }
    return lineLength == 0 ? text : broken(text, lineLength);
}
