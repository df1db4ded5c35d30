// The test's files have another root entry than the machine's, which shows which file was used.
#include "util/password_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>

#include "../fs/temporary_directory.h"

namespace {

constexpr const char* kRootLine = "root:x:4242:4343::/home:/bin/sh\n";

using testing::Optional;

class PasswordFileTest : public testing::Test {
protected:
    PasswordFile file(const std::string& lines,
                      const std::string& services = "passwd: files systemd\n") {
        passwords = directory.write("/passwd", lines);
        sources = directory.write("/nsswitch.conf", services);
        return PasswordFile(passwords, sources);
    }

    static std::optional<uid_t> uidOf(PasswordFile& file, const std::string& name = "root") {
        const auto entry = file.find(name);
        return entry ? std::optional(entry->uid) : std::nullopt;
    }

    std::optional<uid_t> uidOfRoot(const std::string& lines,
                                   const std::string& services = "passwd: files\n") {
        PasswordFile read = file(lines, services);
        return uidOf(read);
    }

    TemporaryDirectory directory;
    std::string passwords;
    std::string sources;
};

TEST_F(PasswordFileTest, GivesWholeEntries) {
    PasswordFile read = file("b:x:2:9:B::\nroot:x:4242:4343:R:/home:/bin/sh\na:x:1:8:::/bin/a\n");
    const auto root = read.find("root");
    ASSERT_TRUE(root);
    EXPECT_EQ(root->name, "root");
    EXPECT_EQ(root->uid, 4242U);
    EXPECT_EQ(root->gid, 4343U);
    EXPECT_EQ(root->homeDirectory, "/home");
    EXPECT_EQ(root->shell, "/bin/sh");
    EXPECT_THAT(uidOf(read, "a"), Optional(1U));
    EXPECT_EQ(read.find("a")->shell, "/bin/a");
    EXPECT_THAT(uidOf(read, "b"), Optional(2U));
    EXPECT_EQ(read.find("b")->homeDirectory, "");
    EXPECT_EQ(read.find("b")->shell, "");
}

TEST_F(PasswordFileTest, GivesTheFirstOfSeveralLinesOfAUser) {
    std::string lines = "root:x:4242:0:::\n";
    for (int i = 0; i < 100; ++i) {
        lines += "user" + std::to_string(i) + ":x:1:1:::\nroot:x:7:0:::\n";
    }
    EXPECT_THAT(uidOfRoot(lines), Optional(4242U));
}

TEST_F(PasswordFileTest, GivesNothingForOtherNames) {
    PasswordFile read = file(kRootLine);
    for (const char* name : {"", "roo", "root2", "Root", "x", "/home", "zoe"}) {
        EXPECT_FALSE(read.find(name)) << name;
    }
}

TEST_F(PasswordFileTest, SkipsInvalidLinesAndComments) {
    EXPECT_THAT(uidOfRoot("\n# root:x:1:1:::\nroot\nroot:x\nroot:x:one:1:::\nroot:x::1:::\n  " +
                          std::string(kRootLine)),
                Optional(4242U));
}

TEST_F(PasswordFileTest, HasTheUserAfterAVeryLongLine) {
    const std::string line = "long:x:1:1:" + std::string(100'000, 'g') + "::\n";
    EXPECT_THAT(uidOfRoot(line + kRootLine), Optional(4242U));
}

TEST_F(PasswordFileTest, NeedsNoNewlineAtItsEnd) {
    EXPECT_THAT(uidOfRoot("root:x:4242:1:::"), Optional(4242U));
}

TEST_F(PasswordFileTest, HasNoNameThatIsNeverLookedUp) {
    PasswordFile read = file("+root:x:1:1:::\n-root:x:1:1:::\n:x:1:1:::\n+\n");
    for (const char* name : {"+root", "-root", "+", "-", ""}) {
        EXPECT_FALSE(read.find(name)) << name;
    }
}

TEST_F(PasswordFileTest, IsNotUsedWhenAnotherSourceMayAnswer) {
    for (const char* services :
         {"passwd: sss files\n", "passwd: compat\n", "passwd: db files\n", "passwd:\n",
          "passwd: files [SUCCESS=continue] sss\n", "passwd: files[SUCCESS=continue] sss\n",
          "passwd: files [!UNAVAIL=return] sss\n", "passwd: FILES\n", "passwd: files2\n",
          "passwd: files\npasswd: sss files\n", "passwd: sss\npasswd: files\n", "passwd files\n",
          "passwd :files\n", "group: files\n", "#passwd: files\n", "Passwd: files\n", ""}) {
        EXPECT_FALSE(uidOfRoot(kRootLine, services)) << services;
    }
}

TEST_F(PasswordFileTest, IsUsedWhenItAnswersFirst) {
    for (const char* services :
         {"passwd: files\n", "passwd:files", "  passwd:\tfiles\tsss\n", "passwd: files # sss\n",
          "passwd: files sss [NOTFOUND=return] ldap\n",
          "group: sss\npasswd: files\nshadow: sss\n"}) {
        EXPECT_THAT(uidOfRoot(kRootLine, services), Optional(4242U)) << services;
    }
}

TEST_F(PasswordFileTest, GivesNothingWithoutOneOfTheFiles) {
    file(kRootLine);
    PasswordFile noSources(passwords, directory.at("/none"));
    PasswordFile noPasswords(directory.at("/none"), sources);
    EXPECT_FALSE(noSources.find("root"));
    EXPECT_FALSE(noPasswords.find("root"));
}

TEST_F(PasswordFileTest, IsReadAgainOnceItHasChanged) {
    PasswordFile read = file(kRootLine);
    EXPECT_THAT(uidOf(read), Optional(4242U));
    directory.write("/passwd", "root:x:5:5:::\nmore:x:6:6:::\n");
    EXPECT_THAT(uidOf(read), Optional(5U));
    EXPECT_THAT(uidOf(read, "more"), Optional(6U));
}

TEST_F(PasswordFileTest, IsNotCheckedBeforeTheIntervalHasPassed) {
    PasswordFile file(directory.write("/passwd", "alice:x:1000:1000::/home/alice:/bin/sh\n"),
                      directory.write("/nsswitch.conf", "passwd: files\n"), std::chrono::hours(1));
    ASSERT_TRUE(file.find("alice"));
    directory.write("/passwd", "bob:x:1001:1001::/home/bob:/bin/sh\n");
    EXPECT_TRUE(file.find("alice"));
    PasswordFile later(directory.at("/passwd"), directory.at("/nsswitch.conf"),
                       std::chrono::milliseconds(1));
    ASSERT_TRUE(later.find("bob"));
    directory.write("/passwd", "carol:x:1002:1002::/home/carol:/bin/sh\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_TRUE(later.find("carol"));
}

TEST_F(PasswordFileTest, IsReadAgainOnceItHasBeenReplaced) {
    PasswordFile read = file(kRootLine);
    EXPECT_THAT(uidOf(read), Optional(4242U));
    const std::string other = directory.write("/new", "root:x:2424:4343::/home:/bin/sh\n");
    ASSERT_EQ(std::rename(other.c_str(), passwords.c_str()), 0);
    EXPECT_THAT(uidOf(read), Optional(2424U));
}

TEST_F(PasswordFileTest, GivesNothingOnceItIsGone) {
    PasswordFile read = file(kRootLine);
    EXPECT_THAT(uidOf(read), Optional(4242U));
    ASSERT_EQ(std::remove(passwords.c_str()), 0);
    EXPECT_FALSE(uidOf(read));
}

TEST_F(PasswordFileTest, FollowsAChangeOfTheSources) {
    PasswordFile read = file(kRootLine);
    EXPECT_THAT(uidOf(read), Optional(4242U));
    directory.write("/nsswitch.conf", "passwd: sss files\n");
    EXPECT_FALSE(uidOf(read));
    directory.write("/nsswitch.conf", "passwd: files\n");
    EXPECT_THAT(uidOf(read), Optional(4242U));
}

/// How one version of the file is distinguished from the next. The kernel's clock for file times
/// ticks every few milliseconds, so a change soon after the reading may not change a time; in many
/// rounds some do not.
class PasswordFileVersion : public PasswordFileTest {
protected:
    static constexpr const char* kSameLength = "root:x:2424:4343::/home:/bin/sh\n";

    void expectNoticed(const std::function<void()>& change) {
        for (int round = 0; round < 50; ++round) {
            PasswordFile read = file(kRootLine);
            ASSERT_THAT(uidOf(read), Optional(4242U));
            change();
            ASSERT_THAT(uidOf(read), Optional(2424U)) << "round " << round;
        }
    }

    static timespec modified(const std::string& path) {
        struct stat status {};
        EXPECT_EQ(::stat(path.c_str(), &status), 0);
        return status.st_mtim;
    }

    static void setModified(const std::string& path, timespec time) {
        const std::array<timespec, 2> times = {time, time};
        EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
    }
};

TEST_F(PasswordFileVersion, IsRecognisedByTheSize) {
    expectNoticed([this] {
        const timespec before = modified(passwords);
        directory.write("/passwd", "root:x:2424:4343:::/bin/sh\n");
        setModified(passwords, before);
    });
}

TEST_F(PasswordFileVersion, IsRecognisedByTheTimeOfModification) {
    expectNoticed([this] {
        directory.write("/passwd", kSameLength);
        setModified(passwords, {1, 0});
    });
}

TEST_F(PasswordFileVersion, IsRecognisedByTheTimeOfChangeWhenTheTimeOfModificationIsSetBack) {
    PasswordFile read = file(kRootLine);
    ASSERT_THAT(uidOf(read), Optional(4242U));
    const timespec before = modified(passwords);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // more than one tick
    directory.write("/passwd", kSameLength);
    setModified(passwords, before);
    EXPECT_THAT(uidOf(read), Optional(2424U));
}

TEST_F(PasswordFileVersion, IsRecognisedByTheInode) {
    const std::string first = directory.write("/first", kRootLine);
    const std::string second = directory.write("/second", kSameLength);
    const std::string link = directory.at("/link");
    const std::string services = directory.write("/nsswitch.conf", "passwd: files\n");
    for (int round = 0; round < 50; ++round) {
        for (const std::string& path : {first, second}) {
            setModified(path, {1, 0});
        }
        std::filesystem::remove(link);
        std::filesystem::create_symlink("first", link);
        PasswordFile read(link, services);
        ASSERT_THAT(uidOf(read), Optional(4242U));
        std::filesystem::remove(link);
        std::filesystem::create_symlink("second", link);
        ASSERT_THAT(uidOf(read), Optional(2424U)) << "round " << round;
    }
}

// One user, in one pass for both look-ups.

class OnePasswordLine : public testing::Test {
protected:
    PasswordLine line(const std::string& lines, const std::string& services = "passwd: files\n") {
        return PasswordLine(directory.write("/passwd", lines),
                            directory.write("/nsswitch.conf", services));
    }

    TemporaryDirectory directory;
};

constexpr const char* kThree =
    "root:x:0:0::/root:/bin/bash\nalice:x:7:8:A:/home/alice:/bin/sh\nbob:x:9:9::/home/bob:/bin/"
    "sh\n";

TEST_F(OnePasswordLine, IsFoundByNameAndThenByNumber) {
    PasswordLine alice = line(kThree);
    const auto byName = alice.find("alice");
    ASSERT_TRUE(byName);
    EXPECT_EQ(byName->uid, 7U);
    EXPECT_EQ(byName->gid, 8U);
    EXPECT_EQ(byName->homeDirectory, "/home/alice");
    EXPECT_EQ(byName->shell, "/bin/sh");
    const auto byNumber = alice.findNumber(7U);
    ASSERT_TRUE(byNumber);
    EXPECT_EQ(byNumber->name, "alice");
}

TEST_F(OnePasswordLine, IsTheOnlyOneThatIsKnownByNumber) {
    PasswordLine alice = line(kThree);
    EXPECT_FALSE(alice.findNumber(7U));
    alice.find("alice");
    EXPECT_FALSE(alice.findNumber(0U));
    EXPECT_FALSE(alice.find("carol"));
    EXPECT_FALSE(alice.findNumber(7U));
}

// the C library returns the earlier line for the number
TEST_F(OnePasswordLine, IsNotKnownByTheNumberOfAnEarlierLine) {
    PasswordLine alice = line("other:x:7:1::/other:/bin/sh\nalice:x:7:8::/home/alice:/bin/sh\n");
    EXPECT_TRUE(alice.find("alice"));
    EXPECT_FALSE(alice.findNumber(7U));
}

// the C library reads some of these as 7; whoever cannot tell looks up by number
TEST_F(OnePasswordLine, IsNotKnownByNumberAfterANumberThatIsWrittenOtherwise) {
    for (const std::string number : {" 7", "+7", "007", "4294967303", "7 ", ""}) {
        PasswordLine alice =
            line("other:x:" + number + ":1::/other:/bin/sh\nalice:x:7:8::/home/alice:/bin/sh\n");
        EXPECT_TRUE(alice.find("alice")) << number;
        EXPECT_FALSE(alice.findNumber(7U)) << number;
    }
}

TEST_F(OnePasswordLine, IsTheFirstOfItsNameWhateverFollows) {
    PasswordLine alice = line("alice:x:7:8::/a:/bin/sh\nalice:x:5:5::/b:/bin/sh\nother:x:7:7:::\n");
    EXPECT_EQ(alice.find("alice")->homeDirectory, "/a");
    EXPECT_TRUE(alice.findNumber(7U));
    EXPECT_FALSE(alice.findNumber(5U));
}

TEST_F(OnePasswordLine, IsNotUsedWhenAnotherSourceMayAnswer) {
    for (const std::string services :
         {"passwd: sss files\n", "passwd: files [SUCCESS=merge] sss\n", ""}) {
        EXPECT_FALSE(line(kThree, services).find("alice")) << services;
    }
    EXPECT_FALSE(PasswordLine(directory.at("/absent"), directory.at("/absent")).find("alice"));
}

TEST_F(OnePasswordLine, IsForgottenOnceAFileHasChanged) {
    PasswordLine alice = line(kThree);
    ASSERT_TRUE(alice.find("alice"));
    directory.write("/passwd", "other:x:7:8::/:/bin/sh\n");
    EXPECT_FALSE(alice.findNumber(7U));
}

TEST_F(OnePasswordLine, SkipsInvalidLines) {
    PasswordLine alice = line("alice\n#alice:x:1:1:::\n+alice:x:2:2:::\n\n alice:x:7:8:::\n");
    ASSERT_TRUE(alice.find("alice"));
    EXPECT_TRUE(alice.findNumber(7U));
}

// the C library takes such a line for a comment
TEST_F(OnePasswordLine, IsNotThatOfANameWhichBeginsAComment) {
    EXPECT_FALSE(line("#alice:x:7:8::/home/alice:/bin/sh\n").find("#alice"));
}

using Fields = std::tuple<std::string, uid_t, gid_t, std::string, std::string>;

std::optional<Fields> fieldsOf(const std::optional<PasswordEntry>& entry) {
    return entry ? std::optional(Fields(entry->name, entry->uid, entry->gid, entry->homeDirectory,
                                        entry->shell))
                 : std::nullopt;
}

/// What the C library reads from the file.
std::optional<PasswordEntry> readByCLibrary(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "r"),
                                                               std::fclose);
    const passwd* const entry = ::fgetpwent(file.get());
    return entry == nullptr
               ? std::nullopt
               : std::optional(PasswordEntry{entry->pw_name, entry->pw_uid, entry->pw_gid,
                                             entry->pw_dir, entry->pw_shell});
}

TEST_F(OnePasswordLine, IsReadAsTheCLibraryReadsIt) {
    using std::string_literals::operator""s;
    for (const std::string& text : {"alice:x:7:8:A,B:/home/alice:/bin/sh"s,
                                    "alice::7:8:::"s,
                                    "alice:x:7:8:A:/home/alice"s,
                                    "alice:x:7:8:A"s,
                                    "alice:x:7:8"s,
                                    "alice:x:7"s,
                                    "alice:x"s,
                                    "alice:"s,
                                    "alice:x:7:8::/home/alice:/bin/sh:more"s,
                                    "alice:x:7:8::/home/alice:/bin/sh \t"s,
                                    "alice:x:7:8::/home/alice:/bin/sh\r"s,
                                    "alice:x:007:08::/:/bin/sh"s,
                                    "alice:x:+7:8::/:/bin/sh"s,
                                    "alice:x:7:-8::/:/bin/sh"s,
                                    "alice:x: 7:8::/:/bin/sh"s,
                                    "alice:x:7 :8::/:/bin/sh"s,
                                    "alice:x:0x7:8::/:/bin/sh"s,
                                    "alice:x:7:8a::/:/bin/sh"s,
                                    "alice:x:::::/bin/sh"s,
                                    "alice:x:7::::/bin/sh"s,
                                    "alice:x::8:::/bin/sh"s,
                                    "alice:x:4294967294:4294967295::/:/bin/sh"s,
                                    "alice:x:4294967296:8::/:/bin/sh"s,
                                    "alice:x:7:4294967303::/:/bin/sh"s,
                                    "alice:x:99999999999999999999:8::/:/bin/sh"s,
                                    "  alice:x:7:8::/:/bin/sh"s,
                                    "alice:x:7:8:\xe4:/h\xc3\xa4:/bin/sh"s,
                                    "alice:x:7:8::/home\0/alice:/bin/sh"s,
                                    "alice:x:7\0:8::/:/bin/sh"s,
                                    "alice:x:7:8::/:/bin\0/sh"s}) {
        const std::string path = directory.write("/passwd", text + "\n");
        const auto found = line(text + "\n").find("alice");
        EXPECT_EQ(fieldsOf(found), fieldsOf(readByCLibrary(path))) << text;
    }
}

}  // namespace
