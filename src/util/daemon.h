// What a process does to itself: its environment, its user, what its caller left behind.
#pragma once

#include <string>
#include <vector>

class Daemon {
public:
    /// Removes every environment variable whose name is not in `keep`; the kept ones keep their
    /// values.
    static void cleanEnv(const std::vector<std::string>& keep);

    /// Changes real, effective and saved user and group id, reads them back, and makes sure that
    /// root is out of reach. With `primaryGroupOnly` the supplementary groups are replaced by `gid`
    /// alone, otherwise they stay. False with errno set on any failure, EINVAL for an id of
    /// (unsigned) -1; the process may then have changed in part and must not run anything for the
    /// user.
    static bool changeUser(bool primaryGroupOnly, unsigned uid, unsigned gid);

    /// Makes the process independent of its caller: descriptors 0 to 2 that are closed are opened
    /// on /dev/null (a file opened later must not become somebody's standard error), SIGCHLD is set
    /// to default (when ignored, every wait fails, which would read as success), SIGPIPE is ignored
    /// (a closed pipe must not end the program between two mounts; children get it back).
    static void forgetCaller();
};
