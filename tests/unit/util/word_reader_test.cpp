#include "util/word_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

Words wordsOf(std::string_view text) {
    Words words;
    WordReader reader(text, " \t");
    for (auto word = reader.next(); !word.empty(); word = reader.next()) {
        words.emplace_back(word);
    }
    return words;
}

TEST(WordReader, GivesOneWordAfterAnother) {
    EXPECT_EQ(wordsOf("a bc\td"), (Words{"a", "bc", "d"}));
}

TEST(WordReader, SkipsSeparatorsAroundWords) {
    EXPECT_EQ(wordsOf(" \ta\t  b "), (Words{"a", "b"}));
}

TEST(WordReader, HasNoWordsInAnEmptyText) {
    EXPECT_EQ(wordsOf(""), Words{});
    EXPECT_EQ(wordsOf(" \t "), Words{});
}

TEST(WordReader, StaysAtTheEnd) {
    WordReader reader("a", " ");
    reader.next();
    EXPECT_EQ(reader.next(), "");
    EXPECT_EQ(reader.next(), "");
}

}  // namespace
