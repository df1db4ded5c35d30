// What the kernel answers to a process under the system-call filter. Nobody's privileges are used:
// the filter is installed with no_new_privs, and every call is one that can do no harm.
#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"
#include "libkiv/system_call_rules.h"

/// A system call: 0 or its errno. The arguments go to the kernel as they are.
template <typename... Arguments>
int answerOf(long number, Arguments... arguments) {
    return ::syscall(number, static_cast<unsigned long>(arguments)...) == -1 ? errno : 0;
}

/// The result of `action` in a process under the rules, or minus the signal that ended it.
inline int underRules(const SystemCallRules& rules, const std::function<int()>& action) {
    return outcome(inChild([&] {
        dropPrivileges();
        require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
        installSystemCallFilter(rules);
        return action();
    }));
}

/// The same without a filter: what the kernel says of its own accord.
inline int unfiltered(const std::function<int()>& action) {
    return outcome(inChild([&] {
        dropPrivileges();
        return action();
    }));
}
