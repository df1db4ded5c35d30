// Compares our program, run as the kernel runs it, with the one that libseccomp builds from the
// same rules.
#include "libkiv/filter_program.h"

#include <asm/ioctls.h>
#include <gtest/gtest.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "filter_interpreter.h"
#include "libkiv/system_call_rules.h"
#include "libkiv/system_calls.h"

namespace {

using filter_interpreter::answerOf;
using filter_interpreter::Program;

std::uint32_t actionOf(Answer answer) {
    return answer == Answer::Kill      ? SCMP_ACT_KILL_PROCESS
           : answer == Answer::Missing ? SCMP_ACT_ERRNO(ENOSYS)
                                       : SCMP_ACT_ERRNO(EPERM);
}

/// The program that libseccomp builds from rules that check no arguments.
Program byLibseccomp(const SystemCallRules& rules) {
    // as for a kernel that can kill processes, even where libseccomp cannot find that out: under an
    // emulator
    seccomp_api_set(3);
    const std::unique_ptr<std::remove_pointer_t<scmp_filter_ctx>, void (*)(scmp_filter_ctx)> filter(
        seccomp_init(SCMP_ACT_ALLOW), seccomp_release);
    seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS);
    for (std::size_t i = 1; i < countOfTables(); ++i) {
        seccomp_arch_add(filter.get(), systemCallTable(i).architecture);
    }
    for (const auto& [name, answer] : rules.calls) {
        const int number = seccomp_syscall_resolve_name(name.c_str());
        EXPECT_EQ(seccomp_rule_add(filter.get(), actionOf(answer), number, 0), 0) << name;
    }
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
    EXPECT_EQ(seccomp_export_bpf(filter.get(), ::fileno(file.get())), 0);
    std::rewind(file.get());
    Program program;
    for (sock_filter step{}; std::fread(&step, sizeof(step), 1, file.get()) == 1;) {
        program.push_back(step);
    }
    return program;
}

/// Numbers of every table; for numbers that several calls share, also the values of argument 0.
std::vector<seccomp_data> callsOf(std::uint32_t architecture) {
    std::vector<seccomp_data> calls;
    for (const std::uint32_t begin : {0U, 0x0f0000U, 0x40000000U, 0xffffff00U}) {
        for (std::uint32_t number = begin; number < begin + 700 && number >= begin; ++number) {
            calls.push_back({static_cast<int>(number), architecture, 0, {}});
        }
    }
    for (const std::size_t table : {std::size_t{0}, std::size_t{1}}) {
        for (const char* shared : {"socketcall", "ipc"}) {
            const auto number =
                table < countOfTables() ? systemCallNumber(shared, table) : std::nullopt;
            for (std::uint64_t first = 0; number && first < 32; ++first) {
                calls.push_back({static_cast<int>(*number), architecture, 0, {first}});
            }
        }
    }
    return calls;
}

/// Architecture, number and argument of each call for which the two programs give different
/// answers.
std::string differences(const Program& one, const Program& other) {
    std::string all;
    std::vector<std::uint32_t> architectures = {0, 0x12345678};
    for (std::size_t i = 0; i < countOfTables(); ++i) {
        architectures.push_back(systemCallTable(i).architecture);
    }
    for (const std::uint32_t architecture : architectures) {
        for (const seccomp_data& call : callsOf(architecture)) {
            if (answerOf(one, call) != answerOf(other, call)) {
                all += std::to_string(architecture) + "/" + std::to_string(call.nr) + "/" +
                       std::to_string(call.args[0]) + " ";
            }
        }
    }
    return all;
}

SystemCallRules withItems(const std::vector<std::string>& items) {
    SystemCallRules rules;
    for (const std::string& item : items) {
        applySystemCallItem(rules, item);
    }
    return rules;
}

TEST(FilterProgram, AnswersLikeLibseccomps) {
    SystemCallRules defaults = defaultSystemCallRules();
    std::erase_if(defaults.calls, [](const auto& call) {
        return (call.second != Answer::Deny && call.second != Answer::Missing) ||
               seccomp_syscall_resolve_name(call.first.c_str()) == __NR_SCMP_ERROR;
    });
    defaults.deniedTables.clear();
    EXPECT_GT(defaults.calls.size(), 40U);
    EXPECT_EQ(differences(filterProgram(defaults), byLibseccomp(defaults)), "");
}

TEST(FilterProgram, AnswersLikeLibseccompsForCallsThatShareANumber) {
    const SystemCallRules rules =
        withItems({"deny socket bind recvmmsg", "kill shmget semtimedop", "deny connect listen",
                   "kill msgrcv", "deny read write"});
    EXPECT_EQ(differences(filterProgram(rules), byLibseccomp(rules)), "");
}

TEST(FilterProgram, AnswersLikeLibseccompsForASingleRuleAndForNone) {
    EXPECT_EQ(differences(filterProgram({}), byLibseccomp({})), "");
    const SystemCallRules rules = withItems({"kill getppid"});
    EXPECT_EQ(differences(filterProgram(rules), byLibseccomp(rules)), "");
}

TEST(FilterProgram, MayDenyEveryCall) {
    SystemCallRules rules;
    for (int number = 0; number < 500; ++number) {
        const std::unique_ptr<char, void (*)(void*)> name(
            seccomp_syscall_resolve_num_arch(SCMP_ARCH_NATIVE, number), std::free);
        if (name) {
            rules.calls.emplace(name.get(), Answer::Deny);
        }
    }
    EXPECT_GT(rules.calls.size(), 300U);
    EXPECT_EQ(differences(filterProgram(rules), byLibseccomp(rules)), "");
    EXPECT_LE(filterProgram(rules).size(), static_cast<std::size_t>(BPF_MAXINSNS));
}

TEST(FilterProgram, OfTheBuildIsTheOneOfTheBuiltInRules) {
    const auto bytes = [](std::span<const sock_filter> program) {
        return std::string_view(reinterpret_cast<const char*>(program.data()),
                                program.size_bytes());
    };
    EXPECT_GT(defaultFilterProgram().size(), 300U);
    EXPECT_TRUE(bytes(defaultFilterProgram()) == bytes(filterProgram(defaultSystemCallRules())));
}

TEST(FilterProgram, ComparesFewNumbersForACallWithoutARule) {
    const Program program = filterProgram(defaultSystemCallRules());
    const auto number = systemCallNumber("read", 0);
    const seccomp_data call{static_cast<int>(*number), systemCallTable(0).architecture, 0, {}};
    EXPECT_EQ(answerOf(program, call), SECCOMP_RET_ALLOW);
    EXPECT_LT(filter_interpreter::run(program, call).steps, 40U);
}

TEST(FilterProgram, IgnoresTheVersionInTheArgumentOfIpc) {
    const SystemCallRules rules = withItems({"deny semget"});
    for (std::size_t table = 0; table < countOfTables(); ++table) {
        if (const auto ipc = systemCallNumber("ipc", table)) {
            const seccomp_data call{
                static_cast<int>(*ipc), systemCallTable(table).architecture, 0, {0x10002}};
            EXPECT_EQ(answerOf(filterProgram(rules), call), SECCOMP_RET_ERRNO | EPERM);
        }
    }
}

TEST(SystemCalls, HaveTheNumbersOfLibseccomp) {
    for (std::size_t table = 0; table < countOfTables(); ++table) {
        const std::uint32_t architecture = systemCallTable(table).architecture;
        for (const char* name : {"read", "execve", "ioctl", "clone", "mount", "setns", "bpf",
                                 "openat2", "clone3", "reboot", "landlock_create_ruleset"}) {
            const int wanted = seccomp_syscall_resolve_name_arch(architecture, name);
            EXPECT_EQ(static_cast<int>(systemCallNumber(name, table).value_or(0)), wanted)
                << name << " " << architecture;
        }
    }
}

TEST(SystemCalls, AreKnownByNameWhateverTheirArchitecture) {
    for (const char* name : {"read", "stime", "pciconfig_iobase", "socketcall", "open_tree_attr"}) {
        EXPECT_TRUE(isSystemCall(name)) << name;
    }
    for (const std::string& name : {std::string(""), std::string("rea"), std::string("reads"),
                                    std::string("READ"), std::string("mount\0x", 7)}) {
        EXPECT_FALSE(isSystemCall(name)) << name;
    }
}

}  // namespace
