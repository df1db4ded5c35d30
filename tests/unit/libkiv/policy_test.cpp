#include "libkiv/policy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <string>

#include "../fs/narrowed_process.h"
#include "../fs/temporary_directory.h"
#include "../util/child_process.h"
#include "../util/failure_of.h"

namespace {

class PolicyFile : public testing::Test {
protected:
    Policy read(const std::string& content) {
        return readPolicy(directory.write("/kiv.conf", content));
    }

    /// The error for this content, without the path at the beginning of every text.
    std::string fault(const std::string& content) {
        return withoutPath(failureOf([&] { read(content); }));
    }

    std::string withoutPath(const std::string& text) const {
        const std::string path = directory.at("/kiv.conf") + ": ";
        return text.starts_with(path) ? text.substr(path.size()) : "(without the path) " + text;
    }

    TemporaryDirectory directory;
};

bool isDefault(const Policy& policy) {
    return policy.keptCapabilities.empty() && !policy.systemCalls;
}

TEST_F(PolicyFile, ThatIsMissingMeansTheDefaults) {
    EXPECT_TRUE(isDefault(readPolicy(directory.at("/kiv.conf"))));
    EXPECT_TRUE(isDefault(readPolicy(directory.at("/absent/kiv.conf"))));
}

TEST_F(PolicyFile, ThatIsEmptyMeansTheDefaults) {
    EXPECT_TRUE(isDefault(read("")));
    EXPECT_TRUE(isDefault(read("cap_add\ncap_drop\nseccomp\n")));
    EXPECT_TRUE(isDefault(read("hide\n /etc/shadow\nallowlist /etc\n passwd\n")));
}

TEST_F(PolicyFile, ThatIsADirectoryIsAnError) {
    directory.makeDirectory("/kiv.conf");
    EXPECT_EQ(withoutPath(failureOf([this] { readPolicy(directory.at("/kiv.conf")); })),
              "error while reading from file");
}

TEST_F(PolicyFile, BelowAFileThatIsNotADirectoryIsAnError) {
    directory.write("/file", "");
    const std::string path = directory.at("/file/kiv.conf");
    EXPECT_EQ(failureOf([&path] { readPolicy(path); }), path + ": cannot open file " + path);
}

TEST_F(PolicyFile, ThatIsADanglingLinkIsAnError) {
    const std::string path = directory.at("/kiv.conf");
    std::filesystem::create_symlink("kiv.conf.moved", path);
    EXPECT_EQ(failureOf([&path] { readPolicy(path); }), path + ": cannot open file " + path);
}

TEST_F(PolicyFile, MayBeALink) {
    directory.write("/elsewhere", "cap_add\n kill\n");
    std::filesystem::create_symlink("elsewhere", directory.at("/kiv.conf"));
    EXPECT_EQ(readPolicy(directory.at("/kiv.conf")).keptCapabilities, CapabilitySet{CAP_KILL});
}

TEST_F(PolicyFile, ThatCannotBeReadIsAnError) {
    const std::string path = directory.write("/kiv.conf", "cap_add\n kill\n");
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);
    ASSERT_EQ(::chmod(directory.path.c_str(), 0755), 0);
    const auto result = inChild([&path] {
        dropPrivileges();
        std::cout << failureOf([&path] { readPolicy(path); });
        return 0;
    });
    EXPECT_EQ(result.output, path + ": cannot open file " + path);
}

TEST_F(PolicyFile, KeepsTheCapabilitiesThatItAdds) {
    EXPECT_EQ(read("cap_add\n net_raw\n\tCAP_KILL\ncap_add\n Chown \n").keptCapabilities,
              (CapabilitySet{CAP_NET_RAW, CAP_KILL, CAP_CHOWN}));
}

TEST_F(PolicyFile, DropsACapabilityThatIsAddedBeforeOrAfter) {
    EXPECT_EQ(read("cap_drop\n cap_kill\ncap_add\n kill\n chown\n").keptCapabilities,
              CapabilitySet{CAP_CHOWN});
    EXPECT_EQ(read("cap_add\n kill\n chown\ncap_drop\n KILL\n").keptCapabilities,
              CapabilitySet{CAP_CHOWN});
    EXPECT_TRUE(isDefault(read("cap_drop\n kill\n")));
}

TEST_F(PolicyFile, ChangesTheSystemCallsInItsOrder) {
    const Policy policy =
        read("seccomp\n deny getpid\n allow mount \t umount2\n\tkill\t getpid\n ptrace\n");
    SystemCallRules wanted = defaultSystemCallRules();
    wanted.calls.erase("mount");
    wanted.calls.erase("umount2");
    wanted.calls["getpid"] = Answer::Kill;
    wanted.calls["ptrace"] = Answer::Deny;
    EXPECT_EQ(policy.systemCalls, wanted);
}

TEST_F(PolicyFile, ChangesTheTablesInItsOrderAndSetsNoNewPrivileges) {
    const Policy policy = read("seccomp\n deny-table i386\n no_new_privs\n allow-table x32 i386\n");
    SystemCallRules wanted = defaultSystemCallRules();
    wanted.deniedTables.clear();
    wanted.noNewPrivileges = true;
    EXPECT_EQ(policy.systemCalls, wanted);
}

TEST_F(PolicyFile, ContinuesASectionAfterCommentsAndEmptyLines) {
    const Policy policy = read(
        "# cap_add\ncap_add\n # why\n kill\n\n\t#chown\n   \n \t\n# more\n net_raw\n"
        "seccomp\n\n \t \n # deny getpid\n ptrace\n");
    EXPECT_EQ(policy.keptCapabilities, (CapabilitySet{CAP_KILL, CAP_NET_RAW}));
    EXPECT_EQ(policy.systemCalls->calls.count("getpid"), 0U);
    EXPECT_EQ(policy.systemCalls->calls.at("ptrace"), Answer::Deny);
}

TEST_F(PolicyFile, AcceptsLineEndsOfOtherSystems) {
    EXPECT_EQ(read("hide\n /a\r\ncap_add\n kill\r\n").keptCapabilities, CapabilitySet{CAP_KILL});
}

struct Fault {
    std::string content;
    std::string text;
};

class PolicyFault : public PolicyFile, public testing::WithParamInterface<Fault> {};

TEST_P(PolicyFault, IsReportedWithItsLine) {
    EXPECT_EQ(fault(GetParam().content), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, PolicyFault,
    testing::Values(
        Fault{"cap_add\n kill\n klil\n", "line 3: unknown capability 'klil'"},
        Fault{"cap_drop\n\n# x\n \t klil  \n", "line 4: unknown capability 'klil'"},
        Fault{"cap_drop\n net_raw sys_admin\n", "line 2: unknown capability 'net_raw sys_admin'"},
        Fault{"cap_add\n kill # why\n", "line 2: unknown capability 'kill # why'"},
        Fault{"seccomp\n deny mount\n deny mounnt\n", "line 3: unknown system call 'mounnt'"},
        Fault{"seccomp\n mounnt\n", "line 2: unknown system call 'mounnt'"},
        Fault{"seccomp\n dney\tmount\n",
              "line 2: 'dney' is not deny, kill, allow, deny-table or allow-table"},
        Fault{"seccomp\n allow\n", "line 2: 'allow' without a system call"},
        // an invalid line elsewhere may have been meant for these lists
        Fault{"hide\n /a\nhyde\n /b\ncap_add\n kill\n", "line 4: not parsing a list"},
        Fault{"filter\n /etc/x (\n", "line 2: Unmatched ( or \\("},
        Fault{"cap_add kill\n", "line 1: unexpected arguments"},
        Fault{"seccomp\r\n deny getpid\r\n", "line 2: not parsing a list"},
        Fault{"allowlist\n", "line 1: missing argument to allowlist"}));

TEST_F(PolicyFile, IsReadAsAWholeOrNotAtAll) {
    EXPECT_EQ(fault("cap_add\n kill\n seccomp\n"), "line 3: unknown capability 'seccomp'");
    EXPECT_EQ(fault("cap_add\n kill\nseccomp\n allow mount nonsense\n"),
              "line 4: unknown system call 'nonsense'");
}

TEST_F(PolicyFile, LeavesTheItemsOfOtherSectionsAlone) {
    EXPECT_TRUE(
        isDefault(read("hide\n kill\nempty\n nonsense\nbind\n deny nothing\n"
                       "allowlist /etc\n deny x\nfilter\n /etc/x seccomp\n")));
}

}  // namespace
