#include "companions/check/obeyed_paths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>

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
    {"/etc/acpi", kJobs},
    {"/etc/adduser.conf", kAccounts},
    {"/etc/aliases", kConfiguration},
    {"/etc/alternatives", kPrograms},
    {"/etc/anacrontab", kJobs},
    {"/etc/apache2", kConfiguration},
    {"/etc/apt", kJobs},
    {"/etc/bash.bashrc", kJobs},
    {"/etc/bash_completion.d", kJobs},
    {"/etc/bind", kConfiguration},
    {"/etc/binfmt.d", kConfiguration},
    {"/etc/ca-certificates", kJobs},
    {"/etc/caddy", kConfiguration},
    {"/etc/clamav", kConfiguration},
    {"/etc/cron.d", kJobs},
    {"/etc/cron.daily", kJobs},
    {"/etc/cron.hourly", kJobs},
    {"/etc/cron.monthly", kJobs},
    {"/etc/cron.weekly", kJobs},
    {"/etc/cron.yearly", kJobs},
    {"/etc/crontab", kJobs},
    {"/etc/crypttab", kConfiguration},
    {"/etc/dbus-1", kConfiguration},
    {"/etc/default", kConfiguration},
    {"/etc/deluser.conf", kAccounts},
    {"/etc/dhcp", kJobs},
    {"/etc/doas.conf", kAccounts},
    {"/etc/docker", kConfiguration},
    {"/etc/dovecot", kConfiguration},
    {"/etc/dpkg", kJobs},
    {"/etc/environment", kConfiguration},
    {"/etc/exim4", kConfiguration},
    {"/etc/exports", kAccounts},
    {"/etc/fail2ban", kConfiguration},
    {"/etc/fstab", kConfiguration},
    {"/etc/group", kAccounts},
    {"/etc/grub.d", "the host boots from there"},
    {"/etc/gshadow", kAccounts},
    {"/etc/inetd.conf", kConfiguration},
    {"/etc/init.d", kJobs},
    {"/etc/initramfs-tools", kJobs},
    {"/etc/inittab", kJobs},
    {"/etc/ipsec.conf", kConfiguration},
    {"/etc/iptables", kConfiguration},
    {"/etc/kernel", kJobs},
    {"/etc/ld.so.cache", kPrograms},
    {"/etc/ld.so.conf", kPrograms},
    {"/etc/ld.so.conf.d", kPrograms},
    {"/etc/ld.so.preload", kPrograms},
    {"/etc/letsencrypt", kJobs},
    {"/etc/lighttpd", kConfiguration},
    {"/etc/login.defs", kAccounts},
    {"/etc/logrotate.conf", kJobs},
    {"/etc/logrotate.d", kJobs},
    {"/etc/mariadb", kConfiguration},
    {"/etc/modprobe.d", kConfiguration},
    {"/etc/modules", kConfiguration},
    {"/etc/modules-load.d", kConfiguration},
    {"/etc/monit", kJobs},
    {"/etc/mysql", kConfiguration},
    {"/etc/needrestart", kJobs},
    {"/etc/netplan", kConfiguration},
    {"/etc/network", kConfiguration},
    {"/etc/NetworkManager", kConfiguration},
    {"/etc/nftables.conf", kConfiguration},
    {"/etc/nginx", kConfiguration},
    {"/etc/nsswitch.conf", kAccounts},
    {"/etc/openvpn", kConfiguration},
    {"/etc/pam.d", kAccounts},
    {"/etc/passwd", kAccounts},
    {"/etc/perl", kPrograms},
    {"/etc/php", kConfiguration},
    {"/etc/polkit-1", kAccounts},
    {"/etc/postfix", kConfiguration},
    {"/etc/postgresql", kConfiguration},
    {"/etc/ppp", kJobs},
    {"/etc/profile", kJobs},
    {"/etc/profile.d", kJobs},
    {"/etc/proftpd", kConfiguration},
    {"/etc/pure-ftpd", kConfiguration},
    {"/etc/rc.local", kJobs},
    {"/etc/redis", kConfiguration},
    {"/etc/rsyslog.conf", kConfiguration},
    {"/etc/rsyslog.d", kConfiguration},
    {"/etc/samba", kConfiguration},
    {"/etc/security", kAccounts},
    {"/etc/shadow", kAccounts},
    {"/etc/shells", kAccounts},
    {"/etc/skel", kAccounts},
    {"/etc/ssh", kAccounts},
    {"/etc/ssl/openssl.cnf", kPrograms},
    {"/etc/ssl/private", kAccounts},
    {"/etc/subgid", kAccounts},
    {"/etc/subuid", kAccounts},
    {"/etc/sudo.conf", kAccounts},
    {"/etc/sudoers", kAccounts},
    {"/etc/sudoers.d", kAccounts},
    {"/etc/sysctl.conf", kConfiguration},
    {"/etc/sysctl.d", kConfiguration},
    {"/etc/systemd", kConfiguration},
    {"/etc/tarnwell", "it says what containers are"},
    {"/etc/tmpfiles.d", kConfiguration},
    {"/etc/udev", kConfiguration},
    {"/etc/ufw", kConfiguration},
    {"/etc/update-motd.d", kJobs},
    {"/etc/vsftpd.conf", kConfiguration},
    {"/etc/wireguard", kConfiguration},
    {"/etc/xinetd.d", kConfiguration},
    {"/lib", kPrograms},
    {"/lib64", kPrograms},
    {"/proc", "it is the kernel's interface"},
    {"/root", "it is the administrator's home"},
    {"/run", "the host's services have their sockets there"},
    {"/sbin", kPrograms},
    {"/sys", "it is the kernel's interface"},
    {"/usr", kPrograms},
    {"/var/cache/apt", kPrograms},
    {"/var/lib/apt", kPrograms},
    {"/var/lib/containerd", kPrograms},
    {"/var/lib/docker", kPrograms},
    {"/var/lib/dpkg", kPrograms},
    {"/var/lib/systemd", kConfiguration},
    {"/var/spool/anacron", kJobs},
    {"/var/spool/at", kJobs},
    {"/var/spool/cron", kJobs},
    {"/var/spool/exim4", "the host's mail server reads its queue there"},
    {"/var/spool/postfix", "the host's mail server reads its queue there"},
};

// Harmless although below /run: the targets of /etc/resolv.conf.
constexpr const char* kNameServers[] = {"/run/NetworkManager", "/run/resolvconf",
                                        "/run/systemd/resolve"};

// UID_MIN and UID_MAX of login.defs(5), with Debian's values
constexpr uid_t kFirstUser = 1000;
constexpr uid_t kLastUser = 60000;

/// A directory on its own file system appears in a container only through a bind mount: hosts with
/// a separate /usr or /var have no choice.
bool isMountPoint(const std::string& path) {
    struct stat own {};
    struct stat above {};
    return ::stat(path.c_str(), &own) == 0 && ::stat((path + "/..").c_str(), &above) == 0 &&
           own.st_dev != above.st_dev;
}

bool isHarmless(const std::string& target) {
    return isAtOrBelow(target, kDatabaseSocket) ||
           std::any_of(std::begin(kNameServers), std::end(kNameServers),
                       [&target](const char* place) { return isAtOrBelow(target, place); });
}

bool contain(const std::string& one, const std::string& other) {
    return isAtOrBelow(one, other) || isAtOrBelow(other, one);
}

}  // namespace

std::string resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&::free)> found(::realpath(path.c_str(), nullptr),
                                                         &::free);
    if (found != nullptr) {
        return found.get();
    }
    const std::string parent = parentOf(path);
    if (parent == path || parent.empty()) {
        return path;
    }
    const std::string above = resolved(parent);
    return (above == "/" ? "" : above) + "/" + componentsOf(path).back();
}

std::optional<std::string> whyObeyed(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
        return "it is a disk of the host";
    }
    const std::string target = resolved(path);
    if (target == "/") {
        return "it is the host's root directory";
    }
    if (isHarmless(target) || ((target == "/usr" || target == "/var") && isMountPoint(target))) {
        return std::nullopt;
    }
    static const std::vector<std::string> targets = [] {
        std::vector<std::string> found;
        for (const ObeyedPath& obeyed : kObeyed) {
            found.push_back(resolved(obeyed.path));
        }
        return found;
    }();
    for (std::size_t i = 0; i < targets.size(); ++i) {
        if (contain(path, kObeyed[i].path) || contain(target, kObeyed[i].path) ||
            contain(target, targets[i])) {
            return kObeyed[i].reason;
        }
    }
    return std::nullopt;
}

UserHomes::UserHomes(const std::string& passwordFile) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        std::fopen(passwordFile.c_str(), "re"), &std::fclose);
    // only the password file: other sources may have millions of users and are not enumerated
    while (const passwd* user = file == nullptr ? nullptr : ::fgetpwent(file.get())) {
        if (user->pw_uid >= kFirstUser && user->pw_uid <= kLastUser) {
            homes.push_back({user->pw_name, resolved(user->pw_dir)});
        }
    }
}

std::optional<std::string> UserHomes::userIn(const std::string& path) const {
    const std::string target = resolved(path);
    const auto inside = std::find_if(homes.begin(), homes.end(), [&target](const Home& home) {
        return isAtOrBelow(home.directory, target);
    });
    return inside == homes.end() ? std::nullopt : std::optional(inside->user);
}
