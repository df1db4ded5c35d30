// Turns the rules into the kernel's filter program, see seccomp(2).
#include <asm/ioctls.h>
#include <sched.h>
#include <seccomp.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

#include "libkiv/system_call_rules.h"
#include "util/errors.h"

namespace {

using Filter = std::unique_ptr<std::remove_pointer_t<scmp_filter_ctx>, void (*)(scmp_filter_ctx)>;

/// The kernel takes the 32-bit arguments that are looked at here from 64-bit registers whose upper
/// half it ignores. A filter that compares all of it is passed by setting a bit up there.
constexpr std::uint64_t kLowHalf = 0xffffffff;
constexpr std::uint64_t kPushInput = TIOCSTI;
constexpr std::uint64_t kTerminalSubcodes = 0x541c;  // TIOCLINUX, ioctl_console(2)

// personality(2): PER_LINUX32 and UNAME26 change what uname(2) says; all bits ask and change
// nothing
constexpr std::uint64_t kHarmlessBits = 0x0008 | 0x20000;
constexpr std::uint64_t kTopBit = 0x80000000;

/// The other architectures whose programs a machine of the native one runs.
struct Compatible {
    std::uint32_t native;
    std::uint32_t other;
};

constexpr Compatible kCompatible[] = {
    {SCMP_ARCH_X86_64, SCMP_ARCH_X86},
    {SCMP_ARCH_X86_64, SCMP_ARCH_X32},
    {SCMP_ARCH_AARCH64, SCMP_ARCH_ARM},
};

void require(int result, const std::string& what) {
    if (result < 0) {
        throw systemError("system-call filter: " + what + ": ", -result);
    }
}

/// The rule of one call name while it is written into a filter. A name that an architecture does
/// not have is passed over there by seccomp_rule_add(3).
class Rule {
public:
    Rule(const Filter& target, const std::string& callName)
        : filter(target), name(callName), call(seccomp_syscall_resolve_name(name.c_str())) {}

    void always(std::uint32_t action) const {
        require(seccomp_rule_add(filter.get(), action, call, 0), name);
    }

    /// When the bits of `mask` in an argument are those of `value`.
    void when(unsigned argument, std::uint64_t mask, std::uint64_t value) const {
        const scmp_arg_cmp bits{argument, SCMP_CMP_MASKED_EQ, mask, value};
        require(seccomp_rule_add_array(filter.get(), SCMP_ACT_ERRNO(EPERM), call, 1, &bits), name);
    }

    /// A rule compares an argument once, so the complement of the allowed values is told by pairs
    /// of bits. Allowed are none of the harmful bits, and all bits. Anything between has, going
    /// around the harmful ones, one that is set before one that is not; or all of these, and lacks
    /// another. A rule takes libseccomp microseconds, which every shell waits for: these are 32.
    void whenOddPersonality() const {
        const auto whenFirstAlone = [this](std::uint64_t set, std::uint64_t unset) {
            when(0, set | unset, set);
        };
        std::uint64_t before = kTopBit;
        for (std::uint64_t bit = 1; bit <= kTopBit; bit <<= 1) {
            if ((bit & kHarmlessBits) != 0) {
                whenFirstAlone(kTopBit, bit);
                continue;
            }
            whenFirstAlone(before, bit);
            before = bit;
        }
    }

private:
    const Filter& filter;
    const std::string& name;
    int call;
};

void add(const Rule& rule, Answer answer) {
    switch (answer) {
        case Answer::Deny:
            return rule.always(SCMP_ACT_ERRNO(EPERM));
        case Answer::Kill:
            return rule.always(SCMP_ACT_KILL_PROCESS);
        case Answer::Missing:
            return rule.always(SCMP_ACT_ERRNO(ENOSYS));
        case Answer::DenyNewUserNamespace:
            return rule.when(0, CLONE_NEWUSER, CLONE_NEWUSER);
        case Answer::DenyTerminalInput:
            rule.when(1, kLowHalf, kPushInput);
            return rule.when(1, kLowHalf, kTerminalSubcodes);
        case Answer::DenyOddPersonality:
            return rule.whenOddPersonality();
    }
}

void addArchitectures(const Filter& filter) {
    for (const Compatible& pair : kCompatible) {
        if (pair.native == seccomp_arch_native()) {
            require(seccomp_arch_add(filter.get(), pair.other), "architecture");
        }
    }
}

}  // namespace

void installSystemCallFilter(const SystemCallRules& rules) {
    const Filter filter(seccomp_init(SCMP_ACT_ALLOW), seccomp_release);
    if (!filter) {
        throw systemError("system-call filter: ", ENOMEM);
    }
    require(seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_NNP, 0), "no_new_privs");
    require(seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_KILL_PROCESS),
            "other architectures");
    // the kernel's own reason for a refusal; else every one reads ECANCELED
    require(seccomp_attr_set(filter.get(), SCMP_FLTATR_API_SYSRAWRC, 1), "errors");
    // a tree by call number: most calls of a program match no rule and would pass all of them
    require(seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2), "order");
    addArchitectures(filter);
    for (const auto& [name, answer] : rules) {
        add(Rule(filter, name), answer);
    }
    require(seccomp_load(filter.get()), "seccomp()");
}
