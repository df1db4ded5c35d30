// Filtered copies: the lines that an account sees, and failures of a copy.
#include <gtest/gtest.h>
#include <sys/syscall.h>

#include <csignal>
#include <functional>

#include "../util/child_process.h"
#include "layer_fixture.h"
#include "narrowed_process.h"

namespace {

class FilterLayer : public OverlayLayer {
protected:
    /// The copy of a file with this content, for that account.
    std::string copyOf(const std::string& content, const std::string& expression,
                       const std::string& user = "alice") {
        lower.write("/host/passwd", content);
        filters[host + "/passwd"] = expression;
        build(user);
        EXPECT_EQ(errors, "");
        return filteredCopy();
    }

    /// Builds the layer in a child that `narrow` has restricted. `errors` leaves out the warnings
    /// about mirrored directories of other owners.
    void buildNarrowed(const std::function<void()>& narrow) {
        const auto result = inChild([this, &narrow] {
            narrow();
            buildOverlayLayer(lower.at("/lower"), lower.at("/layer"), "alice",
                              {allowlists, hide, empty, bind, filters});
            return 0;
        });
        EXPECT_EQ(outcome(result), 0);
        std::istringstream lines(result.errorOutput);
        errors.clear();
        for (std::string line; std::getline(lines, line);) {
            errors += line.starts_with("WARN: chown(") ? "" : line + "\n";
        }
    }

    std::string copyPath() { return lower.at("/layer" + host + "/passwd"); }
};

TEST_F(FilterLayer, KeepsTheOrderOfLines) {
    EXPECT_EQ(copyOf("c\na\nx\nb\na\n", "^[abc]$"), "c\na\nb\na\n");
}

TEST_F(FilterLayer, EndsALastLineWithoutANewlineByOne) {
    EXPECT_EQ(copyOf("alice:1", "^${USER}:"), "alice:1\n");
}

TEST_F(FilterLayer, KeepsCarriageReturns) {
    EXPECT_EQ(copyOf("alice:1\r\nbob:2\r\n", "^${USER}:"), "alice:1\r\n");
}

TEST_F(FilterLayer, KeepsEmptyLinesThatMatch) {
    EXPECT_EQ(copyOf("\n\nalice\n", "^$"), "\n\n");
}

TEST_F(FilterLayer, CopiesAnEmptyFile) {
    EXPECT_EQ(copyOf("", "x"), "");
    EXPECT_TRUE(lower.has("/layer" + host + "/passwd"));
}

TEST_F(FilterLayer, LeavesAnEmptyFileWhenNothingMatches) {
    EXPECT_EQ(copyOf("bob:1\n", "^${USER}:"), "");
    EXPECT_TRUE(lower.has("/layer" + host + "/passwd"));
}

TEST_F(FilterLayer, DoesNotTakeTheNameForAPartOfALongerOne) {
    EXPECT_EQ(copyOf("alicex:1\nxalice:2\nalice:3\nALICE:4\n", "^(${USER}):"), "alice:3\n");
}

TEST_F(FilterLayer, ReplacesEveryMentionOfTheAccount) {
    EXPECT_EQ(copyOf("alice:alice\nalice:bob\nbob:alice\n", "^${USER}:${USER}$"), "alice:alice\n");
}

TEST_F(FilterLayer, MatchesTextAfterNulBytes) {
    EXPECT_EQ(copyOf(std::string("a\0alice\nb\0bob\n", 14), "alice$"),
              std::string("a\0alice\n", 8));
}

TEST_F(FilterLayer, EndsALineOnlyAtItsNewline) {
    EXPECT_EQ(copyOf(std::string("alice\0:1\nalice:2\n", 17), "^alice$"), "");
}

TEST_F(FilterLayer, CopiesLinesThatAreNotText) {
    EXPECT_EQ(copyOf("alice:\xff\xfe:\xc3\x28\n", "^${USER}:"), "alice:\xff\xfe:\xc3\x28\n");
}

TEST_F(FilterLayer, CopiesALineOfAMegabyte) {
    const std::string line = "alice:" + std::string(1 << 20, 'x') + "\n";
    EXPECT_EQ(copyOf("bob:" + std::string(1 << 20, 'x') + "\n" + line, "^${USER}:"), line);
}

TEST_F(FilterLayer, FindsOneAccountAmongThousands) {
    std::string content;
    for (int i = 0; i < 20'000; ++i) {
        content += "user" + std::to_string(i) + ":x:" + std::to_string(i) + "::/home:/bin/sh\n";
    }
    EXPECT_EQ(copyOf("root:x:0\n" + content, "^(root|${USER}):", "user777"),
              "root:x:0\nuser777:x:777::/home:/bin/sh\n");
}

class AccountName : public FilterLayer, public testing::WithParamInterface<std::string> {};

TEST_P(AccountName, SelectsOnlyItsOwnLine) {
    const std::string& name = GetParam();
    const std::string others = "a:1\nb:1\nab:1\naab:1\nabb:1\naxb:1\n:1\nalice:1\nroot:1\n";
    EXPECT_EQ(copyOf(others + name + ":2\n" + others, "^(${USER}):", name), name + ":2\n");
}

INSTANTIATE_TEST_SUITE_P(SpecialCharacters, AccountName,
                         testing::Values("a.b", "a*b", "a+b", "a?b", "a|b", "a(b", "a)b", "(ab)",
                                         "a[b", "a]b", "[ab]", "a{1}b", "a{b", "a}b", "^ab", "ab$",
                                         "a\\b", "a\\.b", "|", ".*", "${USER}", "a-b", "a b", "a_b",
                                         "a\xff", "\\"));

TEST_F(FilterLayer, CopiesOwnerAndMode) {
    lower.write("/host/passwd", "alice\n");
    ASSERT_EQ(::chmod((host + "/passwd").c_str(), 0604), 0);
    if (isRoot()) {
        ASSERT_EQ(::chown((host + "/passwd").c_str(), 64'001, 64'002), 0);
    }
    ::umask(077);
    filters[host + "/passwd"] = "alice";
    build();
    struct stat status {};
    ASSERT_EQ(::stat(copyPath().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0604));
    EXPECT_EQ(status.st_uid, isRoot() ? 64'001 : ::geteuid());
    EXPECT_EQ(status.st_gid, isRoot() ? 64'002 : ::getegid());
}

TEST_F(FilterLayer, MirrorsTheParentsFromTheRunningSystem) {
    lower.makeDirectory("/host", 0710);
    EXPECT_EQ(copyOf("alice\n", "alice"), "alice\n");
    EXPECT_EQ(lower.mode("/layer" + host), static_cast<mode_t>(S_IFDIR | 0710));
}

TEST_F(FilterLayer, CopiesFilesInTheOrderOfTheirPaths) {
    lower.write("/host/b", "");
    lower.write("/host/a", "");
    filters = {{host + "/b", "x"}, {host + "/a", "x"}};
    settings().debugMode = 1;
    build();
    EXPECT_EQ(output, "Creating file: " + lower.at("/layer" + host + "/a") + "\n" +
                          "Creating file: " + lower.at("/layer" + host + "/b") + "\n");
}

TEST_F(FilterLayer, PrintsNothingOutsideDebugMode) {
    copyOf("alice\n", "alice");
    EXPECT_EQ(output, "");
}

TEST_F(FilterLayer, PrintsAFileBeforeItFindsThatThePathIsInUse) {
    lower.write("/host/passwd", "alice\n");
    lower.makeDirectory("/layer" + host + "/passwd");
    filters[host + "/passwd"] = "alice";
    settings().debugMode = 1;
    build();
    EXPECT_EQ(output, "Creating file: " + copyPath() + "\n");
    EXPECT_EQ(errors, copyPath() + ": error while opening: Is a directory\n");
}

TEST_F(FilterLayer, ReplacesAWhiteout) {
    lower.makeDirectory("/lower" + host);
    hide = {host + "/passwd"};
    EXPECT_EQ(copyOf("alice\n", "alice"), "alice\n");
    EXPECT_TRUE(S_ISREG(lower.mode("/layer" + host + "/passwd")));
}

TEST_F(FilterLayer, GoesOnAfterAnExpressionThatDoesNotCompile) {
    lower.write("/host/group", "alice\n");
    lower.write("/host/passwd", "alice\n");
    filters = {{host + "/group", "[a"}, {host + "/passwd", "alice"}};
    build();
    EXPECT_EQ(errors, host + "/group: Unmatched [, [^, [:, [., or [=\n");
    EXPECT_EQ(filteredCopy(), "alice\n");
}

TEST_F(FilterLayer, GoesOnAfterAFileThatIsMissing) {
    lower.write("/host/passwd", "alice\n");
    filters = {{host + "/absent", "x"}, {host + "/passwd", "alice"}};
    build();
    EXPECT_EQ(errors, host + "/absent: No such file or directory\n");
    EXPECT_EQ(filteredCopy(), "alice\n");
}

TEST_F(FilterLayer, ReportsAFileWhoseParentsCannotBeMade) {
    lower.write("/host/dir/passwd", "alice\n");
    lower.write("/layer" + host, "in the way");
    filters[host + "/dir/passwd"] = "alice";
    settings().debugMode = 1;
    build();
    EXPECT_EQ(errors, lower.at("/layer" + host + "/dir") + ": Not a directory\n" +
                          "Error while creating output path...\n");
    EXPECT_EQ(output, "");
}

TEST_F(FilterLayer, ReportsAFileThatCannotBeReadToItsEnd) {
    lower.makeDirectory("/host/passwd");
    filters[host + "/passwd"] = "alice";
    build();
    EXPECT_EQ(errors, copyPath() + ": error while copying\n");
}

TEST_F(FilterLayer, ReportsACopyThatCannotBeWrittenToItsEnd) {
    lower.write("/host/passwd", "alice:" + std::string(100'000, 'x') + "\n");
    filters[host + "/passwd"] = "alice";
    buildNarrowed([] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {10'000, 10'000};
        require(::setrlimit(RLIMIT_FSIZE, &limit) == 0);
    });
    EXPECT_EQ(errors, copyPath() + ": error while copying\n");
}

TEST_F(FilterLayer, ReportsAFileThatMayNotBeRead) {
    lower.write("/host/passwd", "alice\n");
    giveToNobody(lower.path);
    ASSERT_EQ(::chmod((host + "/passwd").c_str(), 0000), 0);
    filters[host + "/passwd"] = "alice";
    buildNarrowed(dropPrivileges);
    EXPECT_EQ(errors, "Cannot open '" + host + "/passwd': Permission denied\n");
}

TEST_F(FilterLayer, ReportsAnOwnerThatCannotBeCopiedAndCopiesTheMode) {
    giveToNobody(lower.path);
    struct stat status {};
    ASSERT_EQ(::stat("/etc/passwd", &status), 0);
    ::umask(077);
    filters["/etc/passwd"] = "^${USER}:";
    buildNarrowed(dropPrivileges);
    EXPECT_EQ(errors,
              "chown(" + lower.at("/layer/etc/passwd") + ") failed: Operation not permitted\n");
    EXPECT_EQ(lower.mode("/layer/etc/passwd"), status.st_mode);
}

TEST_F(FilterLayer, ReportsAModeThatCannotBeCopied) {
    lower.write("/host/passwd", "alice\n");
    filters[host + "/passwd"] = "alice";
    buildNarrowed([] {
#ifdef SYS_chmod
        denySystemCall(SYS_chmod, EROFS);
#endif
        denySystemCall(SYS_fchmodat, EROFS);
    });
    EXPECT_EQ(errors, "chmod(" + copyPath() + ") failed: Read-only file system\n");
    EXPECT_EQ(filteredCopy(), "alice\n");
}

TEST_F(FilterLayer, ReportsAnEmptiedDirectoryWhoseOwnerCannotBeCopied) {
    lower.makeDirectory("/lower/var");
    empty = {"/var"};
    buildNarrowed([] {
#ifdef SYS_chown
        denySystemCall(SYS_chown, EROFS);
#endif
        denySystemCall(SYS_fchownat, EROFS);
    });
    EXPECT_EQ(errors, "chown(" + lower.at("/layer/var") + ") failed: Read-only file system\n");
}

}  // namespace
