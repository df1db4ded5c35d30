// Installs the filter for the rules, see seccomp(2).
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "libkiv/filter_program.h"
#include "libkiv/system_call_rules.h"
#include "util/errors.h"

void installSystemCallFilter(const SystemCallRules& rules) {
    if (rules.noNewPrivileges && ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        throw systemError("system-call filter: no_new_privs: ");
    }
    std::vector<sock_filter> program = filterProgram(rules);
    const sock_fprog handed{static_cast<unsigned short>(program.size()), program.data()};
    if (::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &handed) != 0) {
        throw systemError("system-call filter: seccomp(): ");
    }
}
