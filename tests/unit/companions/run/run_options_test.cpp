// kiv-run's command line. The end-to-end tests check the error messages byte for byte.
#include "companions/run/run_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

/// Keeps the texts that a request points into.
class RunOptions : public testing::Test {
protected:
    RunRequest parse(std::initializer_list<const char*> words) {
        texts.assign(words.begin(), words.end());
        std::vector<char*> arguments;
        for (std::string& text : texts) {
            arguments.push_back(text.data());
        }
        arguments.push_back(nullptr);
        return parseRunOptions(static_cast<int>(texts.size()), arguments.data());
    }

    std::vector<std::string> texts;
};

TEST_F(RunOptions, WithOnlyAnAccountSelectItsLoginShell) {
    const RunRequest request = parse({"kiv-run", "alice"});
    EXPECT_EQ(request.action, Action::Work);
    EXPECT_STREQ(request.user, "alice");
    EXPECT_THAT(request.command, IsEmpty());
    EXPECT_FALSE(request.directory);
    EXPECT_EQ(request.umask, 022U);
    EXPECT_EQ(request.preserved, 0U);
    EXPECT_FALSE(request.start);
}

TEST_F(RunOptions, EndAtTheUser) {
    const RunRequest request = parse({"kiv-run", "--start", "alice", "ls", "-e", "--start", "--"});
    EXPECT_TRUE(request.start);
    EXPECT_THAT(request.variables, IsEmpty());
    EXPECT_THAT(request.command,
                ElementsAre(StrEq("ls"), StrEq("-e"), StrEq("--start"), StrEq("--")));
}

TEST_F(RunOptions, DropOneDoubleDashAfterTheUser) {
    EXPECT_THAT(parse({"kiv-run", "alice", "--", "--", "x"}).command,
                ElementsAre(StrEq("--"), StrEq("x")));
    EXPECT_THAT(parse({"kiv-run", "alice", "--"}).command, IsEmpty());
    EXPECT_THAT(parse({"kiv-run", "--", "alice", "--", "x"}).command, ElementsAre(StrEq("x")));
}

TEST_F(RunOptions, TakeValuesInTheSameWordOrTheNext) {
    const RunRequest request = parse({"kiv-run", "-C/srv", "-eA=1", "-e", "B=2=3", "-Tu", "027",
                                      "--preserve-fds=2", "--preserve-fds", "3", "alice"});
    EXPECT_EQ(request.directory, "/srv");
    EXPECT_THAT(request.variables, ElementsAre("A=1", "B=2=3"));
    EXPECT_EQ(request.umask, 027U);
    EXPECT_EQ(request.preserved, 3U);
}

TEST_F(RunOptions, ThatAskForHelpOrVersionNeedNoUser) {
    EXPECT_EQ(parse({"kiv-run", "-T", "--help", "--nonsense"}).action, Action::Help);
    EXPECT_EQ(parse({"kiv-run", "-v"}).action, Action::Version);
}

TEST_F(RunOptions, AreRefusedWithControlCharactersEscaped) {
    try {
        parse({"kiv-run", "-e", "a\nb", "alice"});
        FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "'a\\x0ab' is not NAME=VALUE");
    }
}

}  // namespace
