#include "fs/mount_table.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>
#include <stdexcept>

#include "../util/captured.h"
#include "../util/child_process.h"
#include "narrowed_process.h"
#include "temporary_directory.h"

namespace {

class MountTableFile : public testing::Test {
protected:
    MountTable read(const std::string& content, const std::string& prefix = "") {
        MountTable table;
        Captured standardError(STDERR_FILENO);
        readMountTable(table, prefix, directory.write("/mountinfo", content));
        errors = standardError.text();
        return table;
    }

    /// The first entry of a table with these optional fields.
    bool isPrivate(const std::string& optional) {
        return read("36 35 98:0 /mnt1 /mnt2 rw,noatime " + optional + "- ext3 /dev/root rw\n")
            .get("/mnt2")
            .isPrivate();
    }

    TemporaryDirectory directory;
    std::string errors;
};

std::ptrdiff_t size(const MountTable& table) {
    return std::distance(table.begin(), table.end());
}

TEST_F(MountTableFile, MayBeEmpty) {
    EXPECT_EQ(size(read("")), 0);
    EXPECT_EQ(errors, "");
}

TEST_F(MountTableFile, YieldsMountPointAndRoot) {
    const auto table = read("36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw\n");
    EXPECT_EQ(table.get("/mnt2").mountPoint(), "/mnt2");
    EXPECT_EQ(table.get("/mnt2").root(), "/mnt1");
}

TEST_F(MountTableFile, YieldsTheTypeAndTheFileSystemsOptions) {
    const auto table = read(
        "36 35 98:0 / /mnt2 rw,noatime master:1 shared:2 - ext3 /dev/root rw,errors=continue\n"
        "37 35 98:0 / /mnt3 rw,noatime - ext3\n");
    EXPECT_EQ(table.get("/mnt2").type(), "ext3");
    EXPECT_EQ(table.get("/mnt2").options(), "rw,errors=continue");
    EXPECT_EQ(table.get("/mnt3").options(), "");
}

TEST_F(MountTableFile, RecognisesPrivateMountsByMissingPropagationTags) {
    EXPECT_TRUE(isPrivate(""));
    EXPECT_TRUE(isPrivate("foo:1 "));
    EXPECT_FALSE(isPrivate("master:1 "));
    EXPECT_FALSE(isPrivate("shared:5 master:2 "));
    EXPECT_FALSE(isPrivate("propagate_from:7 "));
    EXPECT_FALSE(isPrivate("unbindable "));
    EXPECT_FALSE(isPrivate("foo:1 shared:5 "));
    EXPECT_TRUE(isPrivate("unbindable:1 "));
}

TEST_F(MountTableFile, LooksForTagsUpToTheSeparatorOnly) {
    EXPECT_TRUE(read("1 2 3:4 / /a rw - ext4 shared:1 master:2\n").get("/a").isPrivate());
}

TEST_F(MountTableFile, TakesALineWithoutASeparatorForPrivate) {
    EXPECT_TRUE(read("1 2 3:4 / /a rw foo:1\n").get("/a").isPrivate());
}

TEST_F(MountTableFile, AnswersWithTheLowestOfStackedMounts) {
    const auto table = read(
        "1 2 3:4 /first /a rw shared:1 - ext4 x rw\n"
        "1 2 3:4 /second /a rw - ext4 x rw\n");
    EXPECT_EQ(size(table), 2);
    EXPECT_EQ(table.get("/a").root(), "/first");
}

TEST_F(MountTableFile, KeepsTheKernelsEscapes) {
    const auto table = read("1 2 3:4 / /run/kiv\\040sub rw - tmpfs x rw\n");
    EXPECT_TRUE(table.contains("/run/kiv\\040sub"));
    EXPECT_FALSE(table.contains("/run/kiv sub"));
}

TEST_F(MountTableFile, FiltersByAPlainPrefix) {
    const auto table = read(
        "1 2 3:4 / /proc rw - proc x rw\n"
        "1 2 3:4 / /run/kiv rw - tmpfs x rw\n"
        "1 2 3:4 / /run/kivx rw - tmpfs x rw\n"
        "1 2 3:4 / /run rw - tmpfs x rw\n",
        "/run/kiv");
    EXPECT_EQ(size(table), 2);
    EXPECT_TRUE(table.contains("/run/kiv"));
    EXPECT_TRUE(table.contains("/run/kivx"));
    EXPECT_EQ(errors, "");
}

TEST_F(MountTableFile, ComparesMountPointsExactly) {
    const auto table = read("1 2 3:4 / /run/kiv rw - tmpfs x rw\n");
    EXPECT_FALSE(table.contains("/run/kiv/"));
    EXPECT_FALSE(table.contains("/run/ki"));
}

TEST_F(MountTableFile, ReportsAndSkipsAShortLine) {
    const auto table = read("1 2 3:4 / /a rw\n\n1 2 3:4 / /b rw - ext4 x rw\n");
    EXPECT_EQ(size(table), 1);
    EXPECT_TRUE(table.contains("/b"));
    EXPECT_EQ(errors, "mountinfo: invalid line: 1 2 3:4 / /a rw\nmountinfo: invalid line: \n");
}

TEST_F(MountTableFile, ThrowsForAnAbsentMountPoint) {
    const auto table = read("");
    try {
        table.get("/absent");
        FAIL() << "found";
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "No such mount point: /absent");
    }
}

TEST_F(MountTableFile, ThatCannotBeOpenedLeavesTheTableEmpty) {
    auto table = read("1 2 3:4 / /a rw - ext4 x rw\n");
    try {
        readMountTable(table, "", directory.at("/absent"));
        FAIL() << "read";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(),
                  "cannot open '" + directory.at("/absent") + "': No such file or directory");
    }
    EXPECT_EQ(size(table), 0);
}

TEST_F(MountTableFile, ThatCannotBeReadIsAnError) {
    MountTable table;
    try {
        readMountTable(table, "", directory.path);
        FAIL() << "read";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "error while reading '" + directory.path + "': Is a directory");
    }
}

TEST_F(MountTableFile, OfABusyHostIsReadInAMoment) {
    std::string content;
    for (int i = 0; i < 10'000; ++i) {
        const std::string user = "user" + std::to_string(i);
        for (const std::string kind : {"net", "ipc", "mnt"}) {
            content += "90 44 0:4 " + kind + ":[4026532396] /run/kiv/" + user + "@" + kind +
                       " rw - nsfs nsfs rw\n";
        }
    }
    const auto table = read(content, "/run/kiv");
    EXPECT_EQ(size(table), 30'000);
    EXPECT_TRUE(checkNamespaceMount("user9999", table, "mnt"));
    EXPECT_FALSE(checkNamespaceMount("user10000", table, "mnt"));
}

TEST_F(MountTableFile, OfThisProcessIsUnderstood) {
    MountTable table;
    Captured standardError(STDERR_FILENO);
    readMountTable(table, "/", kMountInfo);
    EXPECT_EQ(standardError.text(), "");
    EXPECT_TRUE(table.contains("/"));
}

TEST_F(MountTableFile, RecognisesANamespaceFileByTheKindOfItsRoot) {
    const auto table = read(
        "1 2 0:4 net:[4026532008] /run/kiv/alice@net rw - nsfs nsfs rw\n"
        "1 2 0:4 mnt:[4026531840] /run/kiv/alice@ipc rw - nsfs nsfs rw\n"
        "1 2 0:4 netx:[4026531840] /run/kiv/bob@net rw - nsfs nsfs rw\n");
    Captured silence(STDERR_FILENO);
    EXPECT_TRUE(checkNamespaceMount("alice", table, "net"));
    EXPECT_FALSE(checkNamespaceMount("alice", table, "mnt"));
    EXPECT_EQ(silence.text(), "");
    Captured standardError(STDERR_FILENO);
    EXPECT_FALSE(checkNamespaceMount("alice", table, "ipc"));
    EXPECT_FALSE(checkNamespaceMount("bob", table, "net"));
    EXPECT_EQ(standardError.text(),
              "Unexpected mount source for /run/kiv/alice@ipc: mnt:[4026531840]\n"
              "Unexpected mount source for /run/kiv/bob@net: netx:[4026531840]\n");
}

// Unusual mount tables, and those of a busy host.

using MountLines = MountTableFile;

TEST_F(MountLines, AreKeptInFileOrder) {
    const auto table = read(
        "1 2 3:4 / /z rw - ext4 x rw\n1 2 3:4 / /a rw - ext4 x rw\n1 2 3:4 / /m rw - ext4 x rw\n");
    std::string order;
    for (const MountEntry& entry : table) {
        order += entry.mountPoint();
    }
    EXPECT_EQ(order, "/z/a/m");
}

TEST_F(MountLines, ReplaceWhatTheTableHeld) {
    auto table = read("1 2 3:4 / /old rw - ext4 x rw\n");
    readMountTable(table, "", directory.write("/mountinfo", "1 2 3:4 / /new rw - ext4 x rw\n"));
    EXPECT_EQ(size(table), 1);
    EXPECT_TRUE(table.contains("/new"));
}

TEST_F(MountLines, NeedNoNewlineAtTheEnd) {
    EXPECT_TRUE(read("1 2 3:4 / /a rw - ext4 x rw").contains("/a"));
    read("1 2 3:4");
    EXPECT_EQ(errors, "mountinfo: invalid line: 1 2 3:4\n");
}

TEST_F(MountLines, OfSevenFieldsAreLongEnough) {
    EXPECT_TRUE(read("1 2 3:4 / /a rw -\n").contains("/a"));
    EXPECT_FALSE(read("1 2 3:4 / /a rw \n").contains("/a"));
    EXPECT_EQ(errors, "mountinfo: invalid line: 1 2 3:4 / /a rw \n");
}

TEST_F(MountLines, ThatAreTooShortAreReportedWhateverTheirMountPoint) {
    read("1 2 3:4 / /other rw\n", "/run/kiv");
    EXPECT_EQ(errors, "mountinfo: invalid line: 1 2 3:4 / /other rw\n");
}

TEST_F(MountLines, ThatAreInvalidDoNotHideValidOnes) {
    const auto table = read(std::string("\0\n", 2) + "\xff\xfe\n\r\n1 2 3:4 / /a rw - ext4 x rw\n");
    EXPECT_EQ(size(table), 1);
    EXPECT_EQ(errors,
              "mountinfo: invalid line: \\x00\n"
              "mountinfo: invalid line: \xff\xfe\n"
              "mountinfo: invalid line: \\x0d\n");
}

TEST_F(MountLines, KeepBytesThatAreNotText) {
    const auto table = read(std::string("1 2 3:4 /\xff /a\0b rw - ext4 x rw\n", 31));
    const std::string point("/a\0b", 4);
    ASSERT_TRUE(table.contains(point));
    EXPECT_EQ(table.get(point).root(), "/\xff");
    EXPECT_FALSE(table.contains("/a"));
}

TEST_F(MountLines, DoNotTakeATabForASeparator) {
    EXPECT_EQ(size(read("1\t2\t3:4\t/\t/a\trw\t-\text4\tx\trw\n")), 0);
}

TEST_F(MountLines, OfAMegabyteAreRead) {
    const std::string point = "/" + std::string(1 << 20, 'x');
    EXPECT_TRUE(read("1 2 3:4 / " + point + " rw - ext4 x rw\n").contains(point));
}

TEST_F(MountLines, WithManyOptionalFieldsAreSearchedToTheLast) {
    std::string fields;
    for (int i = 0; i < 1'000; ++i) {
        fields += "foo:" + std::to_string(i) + " ";
    }
    const std::string begin = "1 2 3:4 / /a rw " + fields;
    EXPECT_FALSE(read(begin + "master:1 - ext4 x rw\n").get("/a").isPrivate());
    EXPECT_TRUE(read(begin + "- ext4 x rw\n").get("/a").isPrivate());
}

TEST_F(MountLines, AreNotPrivateByATagWithoutANumber) {
    EXPECT_FALSE(read("1 2 3:4 / /a rw shared: - ext4 x rw\n").get("/a").isPrivate());
    EXPECT_TRUE(read("1 2 3:4 / /a rw shared - ext4 x rw\n").get("/a").isPrivate());
}

TEST_F(MountLines, AreNotJudgedByTheirMountOptions) {
    EXPECT_TRUE(read("1 2 3:4 / /a shared:1 - ext4 x rw\n").get("/a").isPrivate());
}

TEST_F(MountLines, DoNotMatchAPrefixThatIsLongerThanTheirMountPoint) {
    EXPECT_EQ(size(read("1 2 3:4 / /run/ki rw - ext4 x rw\n", "/run/kiv")), 0);
}

TEST_F(MountLines, MatchOnlyAQueryInTheKernelsEscapes) {
    const auto table = read("1 2 0:4 net:[1] /run/kiv/a\\134b@net rw - nsfs nsfs rw\n");
    EXPECT_EQ(table.get("/run/kiv/a\\134b@net").root(), "net:[1]");
    EXPECT_FALSE(checkNamespaceMount("a\\b", table, "net"));
}

TEST_F(MountLines, OfAStackedNamespaceFileAreJudgedByTheLowestMount) {
    const auto table = read(
        "1 2 0:4 / /run/kiv/alice@net rw - tmpfs x rw\n"
        "1 2 0:4 net:[4026532008] /run/kiv/alice@net rw - nsfs nsfs rw\n");
    Captured standardError(STDERR_FILENO);
    EXPECT_FALSE(checkNamespaceMount("alice", table, "net"));
    EXPECT_EQ(standardError.text(), "Unexpected mount source for /run/kiv/alice@net: /\n");
}

TEST_F(MountLines, OfOneAccountDoNotCountForAnother) {
    const auto table = read("1 2 0:4 net:[1] /run/kiv/alice@net rw - nsfs nsfs rw\n");
    EXPECT_FALSE(checkNamespaceMount("alic", table, "net"));
    EXPECT_FALSE(checkNamespaceMount("alice2", table, "net"));
    EXPECT_FALSE(checkNamespaceMount("", table, "net"));
}

TEST_F(MountLines, OfABusyHostAreFilteredByTheirMountPoint) {
    std::string content;
    for (int i = 0; i < 6'000; ++i) {
        const std::string number = std::to_string(i);
        content +=
            "24 30 0:22 / /sys rw,nosuid,nodev,noexec,relatime shared:7 - sysfs sysfs rw\n"
            "512 30 0:" +
            number + " / /var/lib/engine/layers/" + number +
            "/merged rw,relatime shared:" + number +
            " - overlay overlay rw,lowerdir=/l/A:/l/B,upperdir=/u,workdir=/w,index=off\n"
            "513 30 254:1 /srv/backup\\040of\\040" +
            number + " /home/user" + number +
            "/old\\040files rw,relatime shared:1 master:2 - ext4 /dev/mapper/vg-home rw\n"
            "514 30 0:4 net:[" +
            std::to_string(4'026'532'000 + i) + "] /run/netns/cni-" + number +
            " rw shared:3 - nsfs nsfs rw\n"
            "515 40 0:4 mnt:[" +
            std::to_string(4'026'632'000 + i) + "] /run/kiv/user" + number +
            "@mnt rw - nsfs nsfs rw\n";
    }
    const auto table = read(content, "/run/kiv");
    EXPECT_EQ(errors, "");
    EXPECT_EQ(size(table), 6'000);
    const MountEntry& entry = table.get("/run/kiv/user4711@mnt");
    EXPECT_EQ(entry.root(), "mnt:[4026636711]");
    EXPECT_TRUE(entry.isPrivate());
    EXPECT_TRUE(checkNamespaceMount("user5999", table, "mnt"));
    EXPECT_FALSE(checkNamespaceMount("user5999", table, "net"));
}

TEST_F(MountLines, OfAFileThatCannotBeOpenedAreAnErrorWithTheReason) {
    directory.write("/mountinfo", "");
    const auto result = inChild([this] {
        leaveDescriptors(0);
        MountTable table;
        try {
            readMountTable(table, "", directory.at("/mountinfo"));
        } catch (const std::runtime_error& error) {
            return error.what() ==
                           "cannot open '" + directory.at("/mountinfo") + "': Too many open files"
                       ? 0
                       : 1;
        }
        return 2;
    });
    EXPECT_EQ(outcome(result), 0);
}

// One mount of a table.

using OneMount = MountTableFile;

TEST_F(OneMount, IsTheLowestOfItsPoint) {
    const auto path = directory.write(
        "/mountinfo", "1 2 3:4 /low /a rw - ext4 x rw\n1 2 3:4 /high /a rw - ext4 x rw\n");
    const auto found = findMount("/a", path);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->root(), "/low");
}

TEST_F(OneMount, IsFoundByItsWholePath) {
    const auto path = directory.write("/mountinfo", "1 2 3:4 / /a/b rw - ext4 x rw\n");
    EXPECT_FALSE(findMount("/a", path));
    EXPECT_FALSE(findMount("/a/b/c", path));
}

TEST_F(OneMount, IsFoundWithoutReadingWhatFollowsIt) {
    const auto path = directory.write("/mountinfo", "1 2 3:4 / /a rw - ext4 x rw\nshort\n");
    Captured standardError(STDERR_FILENO);
    EXPECT_TRUE(findMount("/a", path));
    EXPECT_EQ(standardError.text(), "");
}

TEST_F(OneMount, OfAFileThatCannotBeReadIsAnError) {
    EXPECT_THROW(findMount("/a", directory.path), std::runtime_error);
    EXPECT_THROW(findMount("/a", directory.at("/absent")), std::runtime_error);
}

// The table of this process, which cannot be read without openat(2).

TEST(CurrentMounts, AreReadOnceWhileNothingIsMounted) {
    const auto result = inChild([] {
        CurrentMounts mounts("/");
        mounts.table();
        denySystemCall(SYS_openat, EACCES);
        return mounts.table().contains("/") ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(CurrentMounts, AreReadAgainByAForkedProcess) {
    CurrentMounts mounts("/");
    mounts.table();
    const auto result = inChild([&mounts] {
        denySystemCall(SYS_openat, EACCES);
        try {
            mounts.table();
        } catch (const std::runtime_error&) {
            return 0;
        }
        return 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(CurrentMounts, AreThoseBelowThePrefix) {
    CurrentMounts mounts("/pro");
    EXPECT_TRUE(mounts.table().contains("/proc"));
    EXPECT_FALSE(mounts.table().contains("/"));
}

}  // namespace
