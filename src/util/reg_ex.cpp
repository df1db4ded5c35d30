#include "util/reg_ex.h"

#include <stdexcept>

#include "util/expression_size.h"

namespace {

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
    // in the C library's words: it has the error, and never gives it in time
    const int code = isModestExpression(pattern)
                         ? ::regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NOSUB | flags)
                         : REG_ESIZE;
    if (code != 0) {
        throw std::runtime_error(describe(code, compiled));
    }
}

RegEx::~RegEx() {
    ::regfree(&compiled);
}

bool RegEx::match(const std::string& text, unsigned long executionFlags) const {
    // REG_STARTEND takes the length from the caller instead of looking for the first NUL byte
    regmatch_t range = {0, static_cast<regoff_t>(text.size())};
    return ::regexec(&compiled, text.c_str(), 1, &range,
                     static_cast<int>(executionFlags) | REG_STARTEND) == 0;
}
