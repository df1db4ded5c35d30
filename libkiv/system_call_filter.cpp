// Installs the kernel's filters that the rules make, see seccomp(2).
#include <linux/seccomp.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "libkiv/filter_program.h"
#include "libkiv/system_call_rules.h"
#include "util/errors.h"

namespace {

using Filter = std::unique_ptr<std::remove_pointer_t<scmp_filter_ctx>, void (*)(scmp_filter_ctx)>;

/// For results as libseccomp gives them: minus an error number.
void throwOnError(int result, const std::string& what) {
    if (result < 0) {
        throw systemError("system-call filter: " + what + ": ", -result);
    }
}

/// For results as the C library gives them.
int negativeError(long result) {
    return result == -1 ? -errno : 0;
}

void installProgram(std::vector<sock_filter> program) {
    const sock_fprog handed{static_cast<unsigned short>(program.size()), program.data()};
    const int result = negativeError(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &handed));
    throwOnError(result, "seccomp()");
}

std::uint32_t actionOf(Answer answer) {
    switch (answer) {
        case Answer::Kill:
            return SCMP_ACT_KILL_PROCESS;
        case Answer::Missing:
            return SCMP_ACT_ERRNO(ENOSYS);
        default:
            return SCMP_ACT_ERRNO(EPERM);
    }
}

void prepare(const Filter& filter, const SystemCallRules& rules) {
    throwOnError(seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_NNP, 0), "no_new_privs");
    // the program has answered them, and of two answers the kernel takes the stricter one
    throwOnError(seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_ALLOW),
                 "other architectures");
    // the kernel's own reason for a refusal; else every one reads ECANCELED
    throwOnError(seccomp_attr_set(filter.get(), SCMP_FLTATR_API_SYSRAWRC, 1), "errors");
    // a tree by call number: most calls of a program match no rule and would pass all of them
    throwOnError(seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_OPTIMIZE, 2), "order");
    for (const std::uint32_t table : openTables(rules)) {
        if (table != seccomp_arch_native()) {
            throwOnError(seccomp_arch_add(filter.get(), table), "architecture");
        }
    }
}

/// A name that a table does not have is passed over there by seccomp_rule_add(3).
void installFilterByName(const SystemCallRules& rules) {
    const Filter filter(seccomp_init(SCMP_ACT_ALLOW), seccomp_release);
    if (!filter) {
        throw systemError("system-call filter: ", ENOMEM);
    }
    prepare(filter, rules);
    for (const auto& [name, answer] : rules.calls) {
        if (!isAnsweredByProgram(name, answer)) {
            const int call = seccomp_syscall_resolve_name(name.c_str());
            throwOnError(seccomp_rule_add(filter.get(), actionOf(answer), call, 0), name);
        }
    }
    throwOnError(seccomp_load(filter.get()), "seccomp()");
}

}  // namespace

void installSystemCallFilter(const SystemCallRules& rules) {
    if (rules.noNewPrivileges) {
        throwOnError(negativeError(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0)), "no_new_privs");
    }
    // first: the other may deny seccomp(2)
    installProgram(filterProgram(rules));
    installFilterByName(rules);
}
