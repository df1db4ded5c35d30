#include "companions/check/obeyed_paths.h"

#include <sys/stat.h>

#include "fs/layer_paths.h"

namespace {

struct ObeyedPath {
    const char* path;
    const char* reason;
};

constexpr const char* kJobs = "the host runs jobs from there";
constexpr const char* kPrograms = "the host's programs are there";
constexpr const char* kAccounts = "it says who may do what on the host";
constexpr const char* kConfiguration = "the host's services read their configuration there";

constexpr ObeyedPath kObeyed[] = {
    {"/bin", kPrograms},
    {"/boot", "the host boots from there"},
    {"/dev/kmem", "it is the kernel's memory"},
    {"/dev/mem", "it is the host's memory"},
    {"/dev/port", "it is the host's hardware"},
    {"/etc/anacrontab", kJobs},
    {"/etc/cron.d", kJobs},
    {"/etc/cron.daily", kJobs},
    {"/etc/cron.hourly", kJobs},
    {"/etc/cron.monthly", kJobs},
    {"/etc/cron.weekly", kJobs},
    {"/etc/cron.yearly", kJobs},
    {"/etc/crontab", kJobs},
    {"/etc/default", kConfiguration},
    {"/etc/group", kAccounts},
    {"/etc/gshadow", kAccounts},
    {"/etc/init.d", kJobs},
    {"/etc/ld.so.conf", kPrograms},
    {"/etc/ld.so.conf.d", kPrograms},
    {"/etc/ld.so.preload", kPrograms},
    {"/etc/modprobe.d", kConfiguration},
    {"/etc/network", kConfiguration},
    {"/etc/pam.d", kAccounts},
    {"/etc/passwd", kAccounts},
    {"/etc/profile", kJobs},
    {"/etc/profile.d", kJobs},
    {"/etc/rc.local", kJobs},
    {"/etc/security", kAccounts},
    {"/etc/shadow", kAccounts},
    {"/etc/ssh", kAccounts},
    {"/etc/sudoers", kAccounts},
    {"/etc/sudoers.d", kAccounts},
    {"/etc/sysctl.d", kConfiguration},
    {"/etc/systemd", kConfiguration},
    {"/etc/tarnwell", "it says what containers are"},
    {"/etc/udev", kConfiguration},
    {"/lib", kPrograms},
    {"/proc", "it is the kernel's interface"},
    {"/root", "it is the administrator's home"},
    {"/run", "the host's services have their sockets there"},
    {"/sbin", kPrograms},
    {"/sys", "it is the kernel's interface"},
    {"/usr", kPrograms},
    {"/var/lib/dpkg", kPrograms},
    {"/var/spool/anacron", kJobs},
    {"/var/spool/at", kJobs},
    {"/var/spool/cron", kJobs},
    {"/var/spool/exim4", "the host's mail server reads its queue there"},
    {"/var/spool/postfix", "the host's mail server reads its queue there"},
};

/// A directory with a file system of its own can be seen in a container only by binding it: hosts
/// with a separate /usr or /var have no choice.
bool isMountPoint(const std::string& path) {
    struct stat own {};
    struct stat above {};
    return ::stat(path.c_str(), &own) == 0 && ::stat((path + "/..").c_str(), &above) == 0 &&
           own.st_dev != above.st_dev;
}

}  // namespace

std::optional<std::string> whyObeyed(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
        return "it is a disk of the host";
    }
    if (isAtOrBelow(path, kDatabaseSocket)) {
        return std::nullopt;
    }
    const bool isSeparate = (path == "/usr" || path == "/var") && isMountPoint(path);
    for (const ObeyedPath& obeyed : kObeyed) {
        if (!isSeparate && (isAtOrBelow(path, obeyed.path) || isAtOrBelow(obeyed.path, path))) {
            return obeyed.reason;
        }
    }
    return std::nullopt;
}
