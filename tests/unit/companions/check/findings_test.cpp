#include "companions/check/findings.h"

#include <gtest/gtest.h>

namespace {

TEST(Findings, AreOneLineEach) {
    Findings findings;
    const FindingsOf file(findings, "/etc/kiv.conf");
    file.note(1, "one");
    file.warn(22, "two\nlines");
    file.error(0, "no line");
    EXPECT_EQ(linesOf(findings),
              "/etc/kiv.conf:1: note: one\n"
              "/etc/kiv.conf:22: warning: two\\x0alines\n"
              "/etc/kiv.conf: error: no line\n");
}

TEST(Findings, AreObjectsWithAllKeys) {
    Findings findings;
    FindingsOf(findings, "a\377").warn(3, "\"quoted\"");
    FindingsOf(findings, "b").note(0, "text");
    EXPECT_EQ(jsonOf(findings), R"([
  {
    "file": "a�",
    "line": 3,
    "severity": "warning",
    "message": "\"quoted\""
  },
  {
    "file": "b",
    "line": null,
    "severity": "note",
    "message": "text"
  }
]
)");
    EXPECT_EQ(jsonOf({}), "[]\n");
    EXPECT_EQ(linesOf({}), "");
}

}  // namespace
