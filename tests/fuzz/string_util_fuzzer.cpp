// split, trim, replaceAll and WordReader, compared with references that work character by
// character. The first line is the text to find, the second its replacement, the rest the text.
#include <vector>

#include "input.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

using Pieces = std::vector<std::string>;

bool isIn(char c, const std::string& characters) {
    for (const char one : characters) {
        if (one == c) {
            return true;
        }
    }
    return false;
}

Pieces splitSimply(const std::string& text, const std::string& separators, bool dropEmpty,
                   bool keepSeparators) {
    Pieces pieces;
    std::string piece;
    const auto endPiece = [&] {
        if (!piece.empty() || !dropEmpty) {
            pieces.push_back(piece);
        }
        piece.clear();
    };
    for (const char c : text) {
        if (!isIn(c, separators)) {
            piece += c;
            continue;
        }
        endPiece();
        if (keepSeparators) {
            pieces.emplace_back(1, c);
        }
    }
    endPiece();
    return pieces;
}

std::string trimSimply(std::string text, const std::string& characters) {
    while (!text.empty() && isIn(text.back(), characters)) {
        text.pop_back();
    }
    while (!text.empty() && isIn(text.front(), characters)) {
        text.erase(text.begin());
    }
    return text;
}

std::string replaceSimply(const std::string& from, const std::string& to,
                          const std::string& subject) {
    std::string result;
    for (std::size_t i = 0; i < subject.size();) {
        if (!from.empty() && subject.compare(i, from.size(), from) == 0) {
            result += to;
            i += from.size();
        } else {
            result += subject[i++];
        }
    }
    return result;
}

Pieces wordsOf(const std::string& text, const std::string& separators) {
    Pieces words;
    WordReader reader(text, separators);
    for (auto word = reader.next(); !word.empty(); word = reader.next()) {
        words.emplace_back(word);
    }
    return words;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const std::string wanted = input.take('\n');
    const std::string replacement = input.take('\n');
    const std::string text = input.all();
    for (const bool dropEmpty : {false, true}) {
        for (const bool keepSeparators : {false, true}) {
            demand(StringUtil::split<Pieces>(text, wanted, dropEmpty, keepSeparators) ==
                       splitSimply(text, wanted, dropEmpty, keepSeparators),
                   "split as the reference splits");
        }
    }
    demand(wordsOf(text, wanted) == splitSimply(text, wanted, true, false), "the same words");
    std::string trimmed = text;
    demand(StringUtil::trim(trimmed, wanted) == trimSimply(text, wanted), "trim as the reference");
    std::string replaced = text;
    StringUtil::replaceAll(wanted, replacement, replaced);
    demand(replaced == replaceSimply(wanted, replacement, text), "replaceAll as the reference");
    return 0;
}
