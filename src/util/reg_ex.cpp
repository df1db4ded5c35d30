#include "util/reg_ex.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string_view>

namespace {

constexpr std::size_t kLongest = 65536;  // bytes
constexpr std::size_t kMostLevels = 255;
constexpr std::size_t kMostOperators = 255;  // in a row

/// Skips a bracket expression, in which parentheses and operators are literal.
void skipBracket(std::string_view& rest) {
    rest.remove_prefix(rest.starts_with('^') ? 1 : 0);
    rest.remove_prefix(rest.starts_with(']') ? 1 : 0);
    while (!rest.empty()) {
        const char c = rest.front();
        rest.remove_prefix(1);
        if (c == ']') {
            return;
        }
        const char kind = rest.empty() ? '\0' : rest.front();
        if (c == '[' && (kind == ':' || kind == '.' || kind == '=')) {
            const char closing[] = {kind, ']'};
            const auto end = rest.find(std::string_view(closing, 2), 1);
            rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 2);
        }
    }
}

/// Skips the rest of what `first` begins: a bracket expression, an escape or an interval such as
/// "{2,5}".
void skipRest(char first, std::string_view& rest) {
    if (first == '[') {
        skipBracket(rest);
    } else if (first == '\\') {
        rest.remove_prefix(rest.empty() ? 0 : 1);
    } else if (first == '{') {
        rest.remove_prefix(std::min(rest.find_first_not_of("0123456789,"), rest.size()));
        rest.remove_prefix(rest.starts_with('}') ? 1 : 0);
    }
}

bool isRepetition(char c) {
    return c == '*' || c == '+' || c == '?' || c == '{';
}

/// regcomp(3) has no limits and recurses for every level and for every operator in a row: 20,000
/// parentheses overflow the stack.
void requireLimits(std::string_view rest) {
    if (rest.size() > kLongest) {
        throw std::runtime_error("regular expression of more than 65536 bytes");
    }
    std::size_t levels = 0;
    std::size_t operators = 0;
    while (!rest.empty()) {
        const char c = rest.front();
        rest.remove_prefix(1);
        skipRest(c, rest);
        operators = isRepetition(c) ? operators + 1 : 0;
        if (c == '(') {
            ++levels;
        } else if (c == ')' && levels > 0) {  // unmatched, it is literal
            --levels;
        }
        if (levels > kMostLevels) {
            throw std::runtime_error("more than 255 levels of groups in regular expression");
        }
        if (operators > kMostOperators) {
            throw std::runtime_error(
                "more than 255 repetition operators in a row in regular expression");
        }
    }
}

std::string describe(int code, const regex_t& pattern) {
    std::string text(::regerror(code, &pattern, nullptr, 0), '\0');
    ::regerror(code, &pattern, text.data(), text.size());
    text.pop_back();  // the size counts the terminating zero
    return text;
}

}  // namespace

RegEx::RegEx(const std::string& pattern, Flags flags) : compiled() {
    if (pattern.find('\0') != std::string::npos) {
        throw std::runtime_error("NUL byte in regular expression");
    }
    requireLimits(pattern);
    const int code = ::regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NOSUB | flags);
    if (code != 0) {
        throw std::runtime_error(describe(code, compiled));
    }
}

RegEx::~RegEx() {
    ::regfree(&compiled);
}

bool RegEx::match(const std::string& text, unsigned long executionFlags) const {
    // with REG_STARTEND the length is given here, so that the text may contain NUL bytes
    regmatch_t range = {0, static_cast<regoff_t>(text.size())};
    return ::regexec(&compiled, text.c_str(), 1, &range,
                     static_cast<int>(executionFlags) | REG_STARTEND) == 0;
}
