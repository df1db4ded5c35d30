#include "libkiv/system_call_rules.h"

#include <gtest/gtest.h>

#include <string>

#include "../util/failure_of.h"

namespace {

/// Rules as an item leaves them, from nothing or from others.
SystemCallRules after(const std::string& item, SystemCallRules rules = {}) {
    applySystemCallItem(rules, item);
    return rules;
}

std::string fault(const std::string& item) {
    return failureOf([&item] { after(item); });
}

TEST(SystemCallItem, DeniesABareName) {
    EXPECT_EQ(after("ptrace"), (SystemCallRules{{"ptrace", Answer::Deny}}));
}

TEST(SystemCallItem, DeniesKillsAndAllowsEveryNameThatFollowsTheWord) {
    EXPECT_EQ(after("deny ptrace getpid"),
              (SystemCallRules{{"ptrace", Answer::Deny}, {"getpid", Answer::Deny}}));
    EXPECT_EQ(after("kill ptrace getpid"),
              (SystemCallRules{{"ptrace", Answer::Kill}, {"getpid", Answer::Kill}}));
    EXPECT_EQ(after("allow ptrace getpid",
                    {{"ptrace", Answer::Kill}, {"getpid", Answer::Deny}, {"mount", Answer::Deny}}),
              (SystemCallRules{{"mount", Answer::Deny}}));
}

TEST(SystemCallItem, MayHoldTabsAndSeveralBlanks) {
    EXPECT_EQ(after("deny\tptrace \t  getpid"), after("deny ptrace getpid"));
    EXPECT_EQ(after("kill   ptrace"), after("kill ptrace"));
}

TEST(SystemCallItem, ReplacesWhatAnEarlierOneSaid) {
    EXPECT_EQ(after("deny ptrace", after("kill ptrace")), after("deny ptrace"));
    EXPECT_EQ(after("kill ptrace", after("deny ptrace")), after("kill ptrace"));
    EXPECT_EQ(after("ptrace", after("allow ptrace", after("kill ptrace"))), after("ptrace"));
}

TEST(SystemCallItem, ReplacesADefaultThatLooksAtArguments) {
    EXPECT_EQ(after("deny clone", defaultSystemCallRules()).at("clone"), Answer::Deny);
    EXPECT_EQ(after("kill clone3", defaultSystemCallRules()).at("clone3"), Answer::Kill);
    EXPECT_EQ(after("allow ioctl", defaultSystemCallRules()).count("ioctl"), 0U);
}

TEST(SystemCallItem, MayAllowWhatIsAllowed) {
    EXPECT_EQ(after("allow getpid getpid"), SystemCallRules{});
}

TEST(SystemCallItem, TakesNamesOfOtherArchitectures) {
    // each is missing on x86-64 or on ARM
    EXPECT_EQ(after("deny stime iopl umount clock_settime64 socketcall").size(), 5U);
}

struct Fault {
    std::string item;
    std::string text;
};

class SystemCallFault : public testing::TestWithParam<Fault> {};

TEST_P(SystemCallFault, SaysWhatCannotBeUnderstood) {
    EXPECT_EQ(fault(GetParam().item), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SystemCallFault,
    testing::Values(Fault{"mounnt", "unknown system call 'mounnt'"},
                    Fault{"MOUNT", "unknown system call 'MOUNT'"},
                    Fault{"165", "unknown system call '165'"},
                    Fault{"-1", "unknown system call '-1'"},
                    Fault{"deny mount mounnt umount3", "unknown system call 'mounnt'"},
                    Fault{"deny deny", "unknown system call 'deny'"},
                    Fault{"allow *", "unknown system call '*'"},
                    Fault{"kill mount,ptrace", "unknown system call 'mount,ptrace'"},
                    Fault{"deny mount # why", "unknown system call '#'"},
                    Fault{"deny", "'deny' without a system call"},
                    Fault{"allow", "'allow' without a system call"},
                    Fault{"kill", "'kill' without a system call"},
                    Fault{"mount ptrace", "'mount' is not deny, allow or kill"},
                    Fault{"Deny mount", "'Deny' is not deny, allow or kill"},
                    Fault{"deny: mount", "'deny:' is not deny, allow or kill"}));

TEST(SystemCallItem, ThatIsRefusedChangesNothing) {
    SystemCallRules rules = {{"mount", Answer::Deny}};
    EXPECT_THROW(applySystemCallItem(rules, "allow mount nonsense"), std::runtime_error);
    EXPECT_EQ(rules, (SystemCallRules{{"mount", Answer::Deny}}));
}

TEST(DefaultSystemCallRules, DenyWhatNoShellNeeds) {
    const SystemCallRules rules = defaultSystemCallRules();
    for (const char* name : {"init_module",
                             "finit_module",
                             "delete_module",
                             "kexec_load",
                             "kexec_file_load",
                             "mount",
                             "umount",
                             "umount2",
                             "pivot_root",
                             "fsopen",
                             "fsconfig",
                             "fsmount",
                             "fspick",
                             "move_mount",
                             "open_tree",
                             "mount_setattr",
                             "setns",
                             "add_key",
                             "keyctl",
                             "request_key",
                             "bpf",
                             "perf_event_open",
                             "userfaultfd",
                             "io_uring_setup",
                             "io_uring_enter",
                             "io_uring_register",
                             "open_by_handle_at",
                             "swapon",
                             "swapoff",
                             "reboot",
                             "acct",
                             "quotactl",
                             "quotactl_fd",
                             "settimeofday",
                             "stime",
                             "clock_settime",
                             "clock_settime64",
                             "adjtimex",
                             "clock_adjtime",
                             "clock_adjtime64",
                             "ioperm",
                             "iopl"}) {
        ASSERT_EQ(rules.count(name), 1U) << name;
        EXPECT_EQ(rules.at(name), Answer::Deny) << name;
    }
}

TEST(DefaultSystemCallRules, LookAtArgumentsWhereACallHasHarmlessUses) {
    const SystemCallRules rules = defaultSystemCallRules();
    EXPECT_EQ(rules.at("unshare"), Answer::DenyNewUserNamespace);
    EXPECT_EQ(rules.at("clone"), Answer::DenyNewUserNamespace);
    EXPECT_EQ(rules.at("clone3"), Answer::Missing);
    EXPECT_EQ(rules.at("ioctl"), Answer::DenyTerminalInput);
    EXPECT_EQ(rules.at("personality"), Answer::DenyOddPersonality);
}

TEST(DefaultSystemCallRules, KillNobody) {
    for (const auto& [name, answer] : defaultSystemCallRules()) {
        EXPECT_NE(answer, Answer::Kill) << name;
    }
}

TEST(DefaultSystemCallRules, LeaveAloneWhatShellsLiveOn) {
    const SystemCallRules rules = defaultSystemCallRules();
    for (const char* name : {"execve", "fork", "vfork", "ptrace", "kill", "setresuid", "prctl",
                             "seccomp", "name_to_handle_at", "clock_gettime", "chroot"}) {
        EXPECT_EQ(rules.count(name), 0U) << name;
    }
}

TEST(SystemCallItem, OfBlanksAloneIsRefused) {
    EXPECT_EQ(fault(""), "'' without a system call");
    EXPECT_EQ(fault(" \t"), "' \t' without a system call");
}

TEST(SystemCallItem, WithANulByteNamesNoSystemCall) {
    EXPECT_NE(fault(std::string("ptrace\0x", 8)), "");
    EXPECT_NE(fault(std::string("kill mount\0", 11)), "");
}

}  // namespace
