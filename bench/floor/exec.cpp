// The minimum of an exec: joins a cgroup and three namespaces, installs prepared filters, changes
// the user and runs the shell. It looks up, checks and locks nothing, and drops no capability from
// the bounding set, unless it is built with EMPTIES_BOUNDING_SET.
//   exec CGROUP USER FILTERS UID GID HOME SHELL
#include <grp.h>
#include <sys/prctl.h>

#include "entering.h"

namespace {

/// Until the kernel knows no further capability.
[[maybe_unused]] void emptyBoundingSet() {
    for (unsigned long capability = 0; ::prctl(PR_CAPBSET_DROP, capability) == 0;) {
        ++capability;
    }
}

}  // namespace

int main(int argc, char** argv) {
    must(argc == 8, "usage: exec CGROUP USER FILTERS UID GID HOME SHELL");
    static Filters filters;
    filters.read(argv[3]);
    enterCgroup(argv[1]);
    enterNamespaces(argv[2]);
    filters.install();
#ifdef EMPTIES_BOUNDING_SET
    emptyBoundingSet();
#endif
    const auto uid = static_cast<uid_t>(std::strtoul(argv[4], nullptr, 10));
    const auto gid = static_cast<gid_t>(std::strtoul(argv[5], nullptr, 10));
    must(::setgroups(1, &gid) == 0 && ::setresgid(gid, gid, gid) == 0 &&
             ::setresuid(uid, uid, uid) == 0,
         "setuid");
    must(::chdir(argv[6]) == 0, argv[6]);
    ::execv(argv[7], argv + 7);
    must(false, argv[7]);
}
