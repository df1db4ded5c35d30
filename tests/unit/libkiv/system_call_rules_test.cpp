#include "libkiv/system_call_rules.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "../util/failure_of.h"

namespace {

SystemCallRules calls(const std::map<std::string, Answer>& answers) {
    return {.calls = answers, .deniedTables = {}};
}

/// The rules after an item is applied to empty rules or to others.
SystemCallRules after(const std::string& item, SystemCallRules rules = {}) {
    applySystemCallItem(rules, item);
    return rules;
}

std::string fault(const std::string& item) {
    return failureOf([&item] { after(item); });
}

TEST(SystemCallItem, DeniesABareName) {
    EXPECT_EQ(after("ptrace"), calls({{"ptrace", Answer::Deny}}));
}

TEST(SystemCallItem, DeniesKillsAndAllowsEveryNameThatFollowsTheWord) {
    EXPECT_EQ(after("deny ptrace getpid"),
              calls({{"ptrace", Answer::Deny}, {"getpid", Answer::Deny}}));
    EXPECT_EQ(after("kill ptrace getpid"),
              calls({{"ptrace", Answer::Kill}, {"getpid", Answer::Kill}}));
    EXPECT_EQ(
        after("allow ptrace getpid",
              calls({{"ptrace", Answer::Kill}, {"getpid", Answer::Deny}, {"mount", Answer::Deny}})),
        calls({{"mount", Answer::Deny}}));
}

TEST(SystemCallItem, MayHoldTabsAndSeveralBlanks) {
    EXPECT_EQ(after("deny\tptrace \t  getpid"), after("deny ptrace getpid"));
    EXPECT_EQ(after("kill   ptrace"), after("kill ptrace"));
}

TEST(SystemCallItem, ReplacesAnEarlierItemForTheSameCall) {
    EXPECT_EQ(after("deny ptrace", after("kill ptrace")), after("deny ptrace"));
    EXPECT_EQ(after("kill ptrace", after("deny ptrace")), after("kill ptrace"));
    EXPECT_EQ(after("ptrace", after("allow ptrace", after("kill ptrace"))), after("ptrace"));
}

TEST(SystemCallItem, ReplacesADefaultThatChecksArguments) {
    EXPECT_EQ(after("deny clone", defaultSystemCallRules()).calls.at("clone"), Answer::Deny);
    EXPECT_EQ(after("kill clone3", defaultSystemCallRules()).calls.at("clone3"), Answer::Kill);
    EXPECT_EQ(after("allow ioctl", defaultSystemCallRules()).calls.count("ioctl"), 0U);
}

TEST(SystemCallItem, MayAllowACallThatIsAlreadyAllowed) {
    EXPECT_EQ(after("allow getpid getpid"), SystemCallRules{});
}

TEST(SystemCallItem, AcceptsNamesOfOtherArchitectures) {
    // each is missing on x86-64 or on ARM
    EXPECT_EQ(after("deny stime iopl umount clock_settime64 socketcall").calls.size(), 5U);
}

struct Fault {
    std::string item;
    std::string text;
};

class SystemCallFault : public testing::TestWithParam<Fault> {};

TEST_P(SystemCallFault, NamesTheTextThatCannotBeUnderstood) {
    EXPECT_EQ(fault(GetParam().item), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SystemCallFault,
    testing::Values(
        Fault{"mounnt", "unknown system call 'mounnt'"},
        Fault{"MOUNT", "unknown system call 'MOUNT'"}, Fault{"165", "unknown system call '165'"},
        Fault{"-1", "unknown system call '-1'"},
        Fault{"deny mount mounnt umount3", "unknown system call 'mounnt'"},
        Fault{"deny deny", "unknown system call 'deny'"},
        Fault{"allow *", "unknown system call '*'"},
        Fault{"kill mount,ptrace", "unknown system call 'mount,ptrace'"},
        Fault{"deny mount # why", "unknown system call '#'"},
        Fault{"deny i386", "unknown system call 'i386'"},
        Fault{"deny no_new_privs", "unknown system call 'no_new_privs'"},
        Fault{"deny-table", "'deny-table' without a system-call table"},
        Fault{"allow-table ", "'allow-table ' without a system-call table"},
        Fault{"deny-table i386 I386", "unknown system-call table 'I386'"},
        Fault{"allow-table x86_64", "unknown system-call table 'x86_64'"},
        Fault{"deny-table mount", "unknown system-call table 'mount'"},
        Fault{"kill-table i386",
              "'kill-table' is not deny, kill, allow, deny-table or allow-table"},
        Fault{"no_new_privs on", "'no_new_privs' takes no names"},
        Fault{"deny", "'deny' without a system call"},
        Fault{"allow", "'allow' without a system call"},
        Fault{"kill", "'kill' without a system call"},
        Fault{"mount ptrace", "'mount' is not deny, kill, allow, deny-table or allow-table"},
        Fault{"Deny mount", "'Deny' is not deny, kill, allow, deny-table or allow-table"},
        Fault{"deny: mount", "'deny:' is not deny, kill, allow, deny-table or allow-table"}));

TEST(SystemCallItem, ThatIsRefusedChangesNothing) {
    SystemCallRules rules = calls({{"mount", Answer::Deny}});
    EXPECT_THROW(applySystemCallItem(rules, "allow mount nonsense"), std::runtime_error);
    EXPECT_EQ(rules, calls({{"mount", Answer::Deny}}));
}

TEST(DefaultSystemCallRules, DenyCallsThatNoShellNeeds) {
    const auto rules = defaultSystemCallRules().calls;
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
                             "iopl",
                             "syslog",
                             "kcmp",
                             "move_pages",
                             "migrate_pages",
                             "fanotify_init",
                             "lookup_dcookie",
                             "uselib",
                             "ustat",
                             "sysfs",
                             "_sysctl",
                             "nfsservctl",
                             "vm86",
                             "vm86old",
                             "open_tree_attr"}) {
        ASSERT_EQ(rules.count(name), 1U) << name;
        EXPECT_EQ(rules.at(name), Answer::Deny) << name;
    }
}

TEST(DefaultSystemCallRules, CheckArgumentsWhenACallHasHarmlessUses) {
    const auto rules = defaultSystemCallRules().calls;
    EXPECT_EQ(rules.at("unshare"), Answer::DenyNewUserNamespace);
    EXPECT_EQ(rules.at("clone"), Answer::DenyNewUserNamespace);
    EXPECT_EQ(rules.at("clone3"), Answer::Missing);
    EXPECT_EQ(rules.at("ioctl"), Answer::DenyHarmfulRequests);
    EXPECT_EQ(rules.at("personality"), Answer::DenyOddPersonality);
    EXPECT_EQ(rules.at("socket"), Answer::DenyVsock);
}

TEST(DefaultSystemCallRules, NeverKill) {
    for (const auto& [name, answer] : defaultSystemCallRules().calls) {
        EXPECT_NE(answer, Answer::Kill) << name;
    }
}

TEST(DefaultSystemCallRules, AllowTheCallsThatShellsNeed) {
    const auto rules = defaultSystemCallRules().calls;
    for (const char* name :
         {"execve", "fork", "vfork", "ptrace", "kill", "setresuid", "prctl", "seccomp",
          "name_to_handle_at", "clock_gettime", "chroot", "process_vm_readv", "process_vm_writev",
          "mbind", "set_mempolicy", "get_mempolicy", "socketcall"}) {
        EXPECT_EQ(rules.count(name), 0U) << name;
    }
}

TEST(DefaultSystemCallRules, DenyOneTable) {
    EXPECT_EQ(defaultSystemCallRules().deniedTables, std::set<std::string>{"x32"});
}

TEST(SystemCallItem, DeniesAndAllowsTables) {
    using Tables = std::set<std::string>;
    // an x86-64 machine has no table arm, and ARM has no i386 and x32; a fleet uses one file for
    // both
    const SystemCallRules denied = after("deny-table i386\tarm");
    EXPECT_EQ(denied.deniedTables, (Tables{"i386", "arm"}));
    EXPECT_EQ(denied.calls, (std::map<std::string, Answer>{}));
    EXPECT_EQ(after("allow-table i386 x32", denied).deniedTables, Tables{"arm"});
    EXPECT_EQ(after("allow-table x32", defaultSystemCallRules()).deniedTables, Tables{});
    EXPECT_EQ(after("deny-table x32", after("allow-table x32", defaultSystemCallRules())),
              defaultSystemCallRules());
}

TEST(SystemCallItem, SetsNoNewPrivileges) {
    EXPECT_FALSE(defaultSystemCallRules().noNewPrivileges);
    SystemCallRules wanted = defaultSystemCallRules();
    wanted.noNewPrivileges = true;
    EXPECT_EQ(after("no_new_privs", defaultSystemCallRules()), wanted);
    EXPECT_EQ(after(" no_new_privs\t", wanted), wanted);
}

TEST(SystemCallItem, KnowsACallThatLibseccompMayNotKnow) {
    EXPECT_EQ(after("kill open_tree_attr", defaultSystemCallRules()).calls.at("open_tree_attr"),
              Answer::Kill);
    EXPECT_EQ(after("allow open_tree_attr", defaultSystemCallRules()).calls.count("open_tree_attr"),
              0U);
}

TEST(SystemCallItem, OfOnlyBlanksIsRefused) {
    EXPECT_EQ(fault(""), "'' without a system call");
    EXPECT_EQ(fault(" \t"), "' \t' without a system call");
}

TEST(SystemCallItem, WithANulByteNamesNoSystemCall) {
    EXPECT_NE(fault(std::string("ptrace\0x", 8)), "");
    EXPECT_NE(fault(std::string("kill mount\0", 11)), "");
}

}  // namespace
