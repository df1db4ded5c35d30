#include "util/string_util.h"

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

std::string& StringUtil::trim(std::string& text, const std::string& characters) {
    const auto last = text.find_last_not_of(characters);
    if (last == std::string::npos) {
        text.clear();
        return text;
    }
    text.erase(last + 1);
    text.erase(0, text.find_first_not_of(characters));
    return text;
}

void StringUtil::replaceAll(const std::string& from, const std::string& to, std::string& subject) {
    if (from.empty()) {
        return;
    }
    // built aside: replacing in place would move the tail once for every occurrence
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
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    if (length < 0) {
        throw std::runtime_error("cannot expand the format '" + std::string(format) + "'");
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    va_start(arguments, format);
    // data() has room for the terminating zero, which vsnprintf counts into the size
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    va_end(arguments);
    return text;
}

std::string StringUtil::hexEscape(char c, const std::string& prefix) {
    return prefix + sprintf("%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
}
