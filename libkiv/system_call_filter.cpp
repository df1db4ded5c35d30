// Installs the filter for the rules, see seccomp(2).
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <span>

#include "libkiv/filter_program.h"
#include "libkiv/system_call_rules.h"
#include "util/errors.h"

namespace {

void install(std::span<const sock_filter> program) {
    // the kernel only reads the program
    const sock_fprog handed{static_cast<unsigned short>(program.size()),
                            const_cast<sock_filter*>(program.data())};
    if (::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &handed) != 0) {
        throw systemError("system-call filter: seccomp(): ");
    }
}

}  // namespace

void installSystemCallFilter(const std::optional<SystemCallRules>& rules) {
    if (!rules) {
        install(defaultFilterProgram());
        return;
    }
    if (rules->noNewPrivileges && ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        throw systemError("system-call filter: no_new_privs: ");
    }
    install(filterProgram(*rules));
}
