// Small operations on strings that several folders share.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

/// The characters that are trimmed from lines.
inline constexpr const char* kWhiteSpace = " \t\n\f\r\v";

class StringUtil {
public:
    /// The pieces of `text` in order; every character of `separators` separates pieces. `dropEmpty`
    /// omits empty pieces: leading, trailing and repeated separators then yield nothing, and an
    /// empty text yields an empty list. `keepSeparators` makes each separator a piece of one
    /// character.
    template <typename Container>
    static Container split(const std::string& text, const std::string& separators, bool dropEmpty,
                           bool keepSeparators);

    /// Removes every leading and trailing character that occurs in `characters`, in place.
    static std::string& trim(std::string& text, const std::string& characters);

    /// The part of `text` that trim would leave, not copied.
    static std::string_view trimmed(std::string_view text, std::string_view characters);

    /// Replaces every occurrence of `from` in `subject` from left to right, in place. The
    /// replacement is not searched again; an empty `from` occurs nowhere.
    static void replaceAll(const std::string& from, const std::string& to, std::string& subject);

    /// printf(3) into a string of any length. Throws std::runtime_error when the format cannot be
    /// expanded (vsnprintf(3) fails).
    [[gnu::format(printf, 1, 2)]] static std::string sprintf(const char* format, ...);

    /// The same for a va_list; the caller calls va_end(3).
    [[gnu::format(printf, 1, 0)]] static std::string vsprintf(const char* format,
                                                              va_list arguments);

    /// `prefix` and the byte's value as two lower-case hexadecimal digits.
    static std::string hexEscape(char c, const std::string& prefix);

    /// `text` with each byte of a control character as "\xHH": C0, DEL, and C1 as encoded in UTF-8.
    /// All other bytes stay, also those of other character sets.
    static std::string escapeControls(std::string_view text);
};

template <typename Container>
Container StringUtil::split(const std::string& text, const std::string& separators, bool dropEmpty,
                            bool keepSeparators) {
    Container pieces;
    std::string::size_type begin = 0;
    for (;;) {
        const auto end = text.find_first_of(separators, begin);
        const auto last = end == std::string::npos;
        const auto length = (last ? text.size() : end) - begin;
        if (length > 0 || !dropEmpty) {
            pieces.emplace_back(text, begin, length);
        }
        if (last) {
            return pieces;
        }
        if (keepSeparators) {
            pieces.emplace_back(text, end, 1);
        }
        begin = end + 1;
    }
}
