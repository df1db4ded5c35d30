// POSIX extended regular expressions of the C library, regcomp(3) and regex(7).
#pragma once

#include <regex.h>

#include <string>

class RegEx {
public:
    /// Added to REG_EXTENDED | REG_NOSUB, for example REG_ICASE; 0 for no options.
    using Flags = int;

    /// Throws std::runtime_error: with the text of regerror(3) when the pattern does not compile,
    /// and with our own text when it contains a NUL byte, where regcomp(3) would silently cut it
    /// off, or when it has more than 64 KiB, 255 levels of groups or 255 repetition operators in a
    /// row. Within these limits a pattern can still use all memory: whoever may write one is
    /// trusted.
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
