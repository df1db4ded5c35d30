#include "util/string_util.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <stdexcept>

namespace {

/// The length in bytes of the control character at the beginning of `text`, or 0. `text` must not
/// be empty.
std::size_t controlLength(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (byte(0) < 0x20 || byte(0) == 0x7f) {
        return 1;
    }
    // U+0080 to U+009F: terminals obey them like ESC followed by a letter
    const bool isC1 = text.size() > 1 && byte(0) == 0xc2 && byte(1) >= 0x80 && byte(1) <= 0x9f;
    return isC1 ? 2 : 0;
}

}  // namespace

std::string& StringUtil::trim(std::string& text, const std::string& characters) {
    return text.assign(trimmed(text, characters));  // which allows a part of itself
}

std::string_view StringUtil::trimmed(std::string_view text, std::string_view characters) {
    // not find_first_not_of, which calls the C library for each character
    const auto isRemoved = [characters](char c) {
        return std::find(characters.begin(), characters.end(), c) != characters.end();
    };
    const auto last = std::find_if_not(text.rbegin(), text.rend(), isRemoved).base();
    const auto first = std::find_if_not(text.begin(), last, isRemoved);
    return {first, last};
}

void StringUtil::replaceAll(const std::string& from, const std::string& to, std::string& subject) {
    if (from.empty()) {
        return;
    }
    // built separately: replacing in place would move the tail once per occurrence
    std::string result;
    std::string::size_type begin = 0;
    for (auto hit = subject.find(from); hit != std::string::npos; hit = subject.find(from, begin)) {
        result.append(subject, begin, hit - begin).append(to);
        begin = hit + from.size();
    }
    if (begin > 0) {
        subject = result.append(subject, begin);
    }
}

std::string StringUtil::sprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = vsprintf(format, arguments);
    va_end(arguments);
    return text;
}

std::string StringUtil::vsprintf(const char* format, va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) {
        throw std::runtime_error("cannot expand the format '" + std::string(format) + "'");
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    // size + 1: the size of vsnprintf includes the terminating zero, for which data() has room
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

std::string StringUtil::hexEscape(char c, const std::string& prefix) {
    return prefix + sprintf("%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
}

std::string StringUtil::escapeControls(std::string_view text) {
    std::string escaped;
    while (!text.empty()) {
        const std::size_t controls = controlLength(text);
        if (controls == 0) {
            escaped += text.front();
        }
        for (const char c : text.substr(0, controls)) {
            escaped += hexEscape(c, "\\x");
        }
        text.remove_prefix(std::max<std::size_t>(controls, 1));
    }
    return escaped;
}
