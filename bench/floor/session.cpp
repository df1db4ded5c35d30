// The minimum of a session in a container, as a PAM module: what floor/exec.cpp does before it
// changes the user. It looks up, checks, locks and logs nothing, and limits no capability.
//   session required session.so CGROUP USER FILTERS
#include <security/pam_modules.h>

#include "entering.h"

extern "C" {

int pam_sm_open_session(pam_handle_t* /*pam*/, int /*flags*/, int count, const char** words) {
    must(count == 3, "usage: session.so CGROUP USER FILTERS");
    static Filters filters;
    filters.read(words[2]);
    enterCgroup(words[0]);
    enterNamespaces(words[1]);
    filters.install();
    return PAM_SUCCESS;
}

int pam_sm_close_session(pam_handle_t* /*pam*/, int /*flags*/, int /*count*/,
                         const char** /*words*/) {
    return PAM_SUCCESS;
}
}
