// The datagrams for the system log. The end-to-end tests check that they arrive.
#include "container/entry_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <string>

namespace {

using testing::EndsWith;
using testing::MatchesRegex;

constexpr std::time_t kTime = 1'780'000'000;

TEST(LogDatagram, HasPriorityTimeAndProcess) {
    EXPECT_THAT(logDatagram(LOG_AUTHPRIV | LOG_INFO, "kiv-run", "text", kTime),
                MatchesRegex("<86>May [ 123][0-9] [0-9:]+ kiv-run\\[[0-9]+\\]: text"));
}

TEST(LogDatagram, EscapesControlCharacters) {
    EXPECT_THAT(logDatagram(LOG_INFO, "kiv-run", "a\nb\x1b[", kTime), EndsWith(": a\\x0ab\\x1b["));
}

TEST(LogDatagram, EscapesBytesThatAreNoCharacters) {
    const auto escaped = [](const std::string& text) {
        const std::string datagram = logDatagram(LOG_INFO, "kiv-run", text, kTime);
        return datagram.substr(datagram.find("]: ") + 3);
    };
    EXPECT_EQ(escaped("caf\xe9 caf\xc3"), "caf\\xe9 caf\\xc3");
    EXPECT_EQ(escaped("\x9b[2J\xc2"), "\\x9b[2J\\xc2");
    EXPECT_EQ(escaped("\xc0\xaf \xe0\x80\xaf \xf0\x80\x80\xaf"),
              "\\xc0\\xaf \\xe0\\x80\\xaf \\xf0\\x80\\x80\\xaf");  // longer than they need to be
    EXPECT_EQ(escaped("\xed\xa0\x80 \xf4\x90\x80\x80"), "\\xed\\xa0\\x80 \\xf4\\x90\\x80\\x80");
    EXPECT_EQ(escaped("\xef\xbf\xbe \xef\xb7\x90"), "\\xef\\xbf\\xbe \\xef\\xb7\\x90");
    EXPECT_EQ(escaped("\u00e9 \u20ac \ud7ff \U0001f600"), "\u00e9 \u20ac \ud7ff \U0001f600");
}

TEST(LogDatagram, OfOneKibibyteIsWholeAndALongerOneIsCut) {
    const std::size_t header = logDatagram(LOG_INFO, "kiv-run", "", kTime).size();
    const std::string text(1024 - header, 'x');
    EXPECT_THAT(logDatagram(LOG_INFO, "kiv-run", text, kTime), EndsWith("xxxx"));
    const std::string longer = logDatagram(LOG_INFO, "kiv-run", text + "x", kTime);
    EXPECT_EQ(longer.size(), 1024U);
    EXPECT_THAT(longer, EndsWith("xxx..."));
}

TEST(LogDatagram, IsNotCutWithinACharacter) {
    std::string text;
    while (text.size() < 2000) {
        text += "\u20ac";  // three bytes
    }
    for (const char* shift : {"", "x", "xx"}) {
        const std::string datagram = logDatagram(LOG_INFO, "kiv-run", shift + text, kTime);
        EXPECT_LE(datagram.size(), 1024U);
        EXPECT_GE(datagram.size(), 1022U);
        EXPECT_THAT(datagram, EndsWith("\u20ac..."));
    }
}

}  // namespace
