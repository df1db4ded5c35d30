#include "companions/check/process_checks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "container/container_status.h"
#include "container/namespace_processes.h"
#include "container/namespaces.h"
#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/line_reader.h"
#include "util/string_util.h"
#include "util/user_slice.h"
#include "util/word_reader.h"

namespace {

constexpr std::size_t kMostShown = 10;

using Pids = std::vector<std::string>;

/// The findings about one account's processes.
struct Found {
    Pids outside;
    Pids oldView;
    Pids replaced;
};

std::string listOf(const Pids& pids) {
    std::string text;
    for (std::size_t i = 0; i < std::min(pids.size(), kMostShown); ++i) {
        text += (i == 0 ? "" : ", ") + pids[i];
    }
    return pids.size() > kMostShown
               ? text + " and " + std::to_string(pids.size() - kMostShown) + " more"
               : text;
}

/// The real user ID, proc_pid_status(5); nothing when the process has ended.
std::optional<uid_t> userOf(const std::string& process) {
    LineReader status(process + "/status");
    std::string line;
    while (status.next(line)) {
        if (line.starts_with("Uid:")) {
            WordReader words(std::string_view(line).substr(4), kWhiteSpace);
            const auto word = words.next();
            uid_t user = 0;
            std::from_chars(word.data(), word.data() + word.size(), user);
            return user;
        }
    }
    return std::nullopt;
}

std::string_view withoutZeros(std::string_view address) {
    return address.substr(std::min(address.find_first_not_of('0'), address.size()));
}

/// After dpkg(1) has replaced a program or library, the old file has no link left. In a container
/// maps does not show "(deleted)" for it, because the overlay still has the name cached.
bool isReplaced(const std::string& process, std::string_view range, std::string_view path) {
    constexpr std::string_view kInstalled[] = {"/usr/", "/lib", "/bin/", "/sbin/", "/opt/"};
    const bool isInstalled =
        std::any_of(std::begin(kInstalled), std::end(kInstalled),
                    [path](std::string_view folder) { return path.starts_with(folder); });
    struct stat status {};
    return isInstalled &&
           (path.ends_with(" (deleted)") ||
            (::stat((process + "/map_files/" + mapFileName(range)).c_str(), &status) == 0 &&
             status.st_nlink == 0));
}

/// Checks the executable mappings, proc_pid_maps(5).
bool hasReplacedFile(const std::string& process) {
    LineReader maps(process + "/maps");
    std::string line;
    while (maps.next(line)) {
        WordReader words(line, " ");
        const auto range = words.next();
        const auto mode = words.next();
        const auto path = line.find('/');
        if (mode.size() > 2 && mode[2] == 'x' && path != std::string::npos &&
            isReplaced(process, range, std::string_view(line).substr(path))) {
            return true;
        }
    }
    return false;
}

/// Compares IDs, because two names may share a user ID.
bool isOf(const HostAccount& account, uid_t user) {
    return account.user && account.user->uid == user;
}

class Checks {
public:
    explicit Checks(const HostAccounts& known) : accounts(known) {}

    void take(const std::string& pid);
    void report(Findings& findings) const;

private:
    const HostAccounts& accounts;
    std::map<std::string, Found> found;
    std::uint64_t ownMounts = getNamespaceInode(::getpid(), "mnt");
};

void Checks::take(const std::string& pid) {
    const std::string process = kProcesses + ("/" + pid);
    const std::uint64_t network = inodeOf(process + "/ns/net");
    if (network == 0) {
        return;  // ended, or ending
    }
    const auto inside = accounts.byNetworkNamespace.find(network);
    const bool isInside = inside != accounts.byNetworkNamespace.end();
    const auto user = userOf(process);
    if (user && !(isInside && isOf(*inside->second, *user))) {
        const auto owner = accounts.byUser.find(*user);
        if (owner != accounts.byUser.end()) {
            found[owner->second->name].outside.push_back(pid);
            return;
        }
    }
    if (!isInside) {
        return;
    }
    const HostAccount& account = *inside->second;
    const std::uint64_t mounts = inodeOf(process + "/ns/mnt");
    if (mounts == 0 || mounts == ownMounts) {
        return;  // an administrator's tool that joined only the network
    }
    if (account.mountNamespace != 0 && mounts != account.mountNamespace) {
        found[account.name].oldView.push_back(pid);
    } else if (hasReplacedFile(process)) {
        found[account.name].replaced.push_back(pid);
    }
}

void Checks::report(Findings& findings) const {
    const FindingsOf processes(findings, kProcesses);
    for (const auto& [name, pids] : found) {
        if (!pids.outside.empty()) {
            processes.warn(0, "processes of '" + name + "' run outside of its container: " +
                                  listOf(pids.outside) + "; start them with kiv-run");
        }
        if (!pids.oldView.empty()) {
            processes.warn(0, "processes of '" + name + "' run in an old view: " +
                                  listOf(pids.oldView) + "; restart them");
        }
        if (!pids.replaced.empty()) {
            processes.warn(0, "processes of '" + name + "' run with files that were replaced: " +
                                  listOf(pids.replaced) + "; restart them");
        }
    }
}

void checkUserManagers(const HostAccounts& accounts, Findings& findings) {
    for (const auto& [user, account] : accounts.byUser) {
        const std::string number = std::to_string(user);
        const std::string cgroup =
            std::string(kCgroupRoot) + "/" + userSlice(user) + "/user@" + number + ".service";
        if (readFirstLine(AT_FDCWD, cgroup + "/cgroup.events") == "populated 1") {
            FindingsOf(findings, cgroup)
                .warn(0, "a user manager of '" + account->name +
                             "' runs outside of the container: run loginctl disable-linger, and "
                             "systemctl mask --now user@" +
                             number);
        }
    }
}

}  // namespace

std::string mapFileName(std::string_view range) {
    const auto dash = std::min(range.find('-'), range.size());
    return std::string(withoutZeros(range.substr(0, dash)))
        .append("-")
        .append(withoutZeros(range.substr(std::min(dash + 1, range.size()))));
}

void checkProcesses(const HostAccounts& accounts, Findings& findings) {
    const DirectoryStream directory(::opendir(kProcesses));
    if (directory == nullptr) {
        throw systemError("Cannot open ", kProcesses, ": ");
    }
    Checks checks(accounts);
    while (const dirent* entry = nextEntry(directory)) {
        if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9') {
            checks.take(entry->d_name);
        }
    }
    if (errno != 0) {
        throw systemError("cannot read ", kProcesses, ": ");
    }
    checks.report(findings);
    checkUserManagers(accounts, findings);
}
