// Changes that a process makes to itself: its environment, its user, the state inherited from its
// caller.
#pragma once

#include <string>
#include <vector>

class Daemon {
public:
    /// Removes every environment variable whose name is not in `keep`. The others keep their
    /// values.
    static void cleanEnv(const std::vector<std::string>& keep);

    /// Changes the real, effective and saved user and group IDs, reads them back, and checks that
    /// the process cannot become root again. With `primaryGroupOnly` the supplementary groups are
    /// replaced by only `gid`, otherwise they stay. Returns false with errno set on any failure
    /// (EINVAL for an ID of (unsigned) -1); the process may then be partly changed and must not run
    /// anything for the user.
    static bool changeUser(bool primaryGroupOnly, unsigned uid, unsigned gid);

    /// Makes the process independent of its caller. Descriptors 0 to 2 that are closed are opened
    /// on /dev/null: no file opened later may become standard error. SIGCHLD gets its default
    /// action: while it is ignored every wait fails, which would look like success. SIGPIPE is
    /// ignored: a closed pipe must not end the program between two mounts. Host tools get the
    /// default SIGPIPE back.
    static void forgetCaller();
};
