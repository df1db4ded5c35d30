// The words of a line, one after another. Unlike StringUtil::split it keeps no list: the list of a
// line of one-letter words would take twenty times the line's memory.
#pragma once

#include <algorithm>
#include <string_view>

class WordReader {
public:
    /// Every character of `wordSeparators` separates words. Both texts must outlive the reader.
    WordReader(std::string_view text, std::string_view wordSeparators)
        : rest(text), separators(wordSeparators) {}

    /// The next word, a part of the text; empty when none is left.
    std::string_view next() {
        rest.remove_prefix(std::min(rest.find_first_not_of(separators), rest.size()));
        const std::string_view word = rest.substr(0, rest.find_first_of(separators));
        rest.remove_prefix(word.size());
        return word;
    }

private:
    std::string_view rest;
    std::string_view separators;
};
