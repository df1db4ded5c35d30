#include "util/text_width.h"

#include <gtest/gtest.h>

#include <clocale>

namespace {

TEST(TextWidth, CountsColumnsInTheLocalesCharacterSet) {
    const std::string before = std::setlocale(LC_CTYPE, nullptr);
    ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    EXPECT_EQ(textWidth(""), 0U);
    EXPECT_EQ(textWidth("Zustand"), 7U);
    EXPECT_EQ(textWidth("Périmé"), 6U);
    EXPECT_EQ(textWidth("日本"), 4U);
    EXPECT_EQ(textWidth("a\377b"), 3U);
    EXPECT_EQ(textWidth("a\303"), 2U);
    std::setlocale(LC_CTYPE, before.c_str());
}

TEST(TextWidth, CountsBytesWhenTheLocaleHasOnlyAscii) {
    EXPECT_EQ(textWidth("abc"), 3U);
    EXPECT_EQ(textWidth(std::string("a\0b", 3)), 3U);
}

}  // namespace
