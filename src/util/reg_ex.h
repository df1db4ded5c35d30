// POSIX extended regular expressions of the C library, regcomp(3).
#pragma once

#include <regex.h>

#include <string>

class RegEx {
public:
    /// Added to REG_EXTENDED | REG_NOSUB, for example REG_ICASE; 0 for no options.
    using Flags = int;

    /// Throws std::runtime_error with regerror(3)'s text when the pattern does not compile; with a
    /// text of our own when it holds a NUL byte, at which regcomp(3) would silently cut it off, and
    /// when it has more than 64 KiB, 255 levels of groups or 255 repetition operators in a row.
    /// Within these limits a pattern can still take all memory: whoever may write one is trusted.
    RegEx(const std::string& pattern, Flags flags);
    ~RegEx();
    RegEx(const RegEx&) = delete;
    RegEx& operator=(const RegEx&) = delete;

    /// True when the pattern matches somewhere in `text`, which may hold NUL bytes.
    /// `executionFlags` are those of regexec(3), such as REG_NOTBOL; 0 for none.
    bool match(const std::string& text, unsigned long executionFlags) const;

private:
    regex_t compiled;
};
