#include "companions/check/process_checks.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "container/container_status.h"
#include "container/namespace_processes.h"
#include "container/namespaces.h"
#include "container/replaced_files.h"
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

/// Compares IDs, because two names may share a user ID.
bool isOf(const HostAccount& account, uid_t user) {
    return account.user && account.user->uid == user;
}

class Checks {
public:
    explicit Checks(const HostAccounts& known) : accounts(known) {}

    void take(const ProcessPlace& place);
    void report(Findings& findings) const;

private:
    const HostAccounts& accounts;
    std::map<std::string, Found> found;
    std::uint64_t ownMounts = getNamespaceInode(::getpid(), "mnt");
};

void Checks::take(const ProcessPlace& place) {
    const std::string pid = std::to_string(place.pid);
    const std::string process = kProcesses + ("/" + pid);
    const auto inside = accounts.byNetworkNamespace.find(place.network);
    const bool isInside = inside != accounts.byNetworkNamespace.end();
    const auto user = userOf(process);
    if (user && !(isInside && isOf(*inside->second, *user))) {
        const auto owner = accounts.byUser.find(*user);
        if (owner != accounts.byUser.end()) {
            found[owner->second->name].outside.push_back(pid);
            return;
        }
    }
    if (!isInside || place.mounts == ownMounts) {
        return;  // the latter is an administrator's tool that joined only the network
    }
    const HostAccount& account = *inside->second;
    if (account.mountNamespace != 0 && place.mounts != account.mountNamespace) {
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

void checkProcesses(const HostAccounts& accounts, Findings& findings) {
    Checks checks(accounts);
    for (const ProcessPlace& place : listProcessPlaces()) {
        checks.take(place);
    }
    checks.report(findings);
    checkUserManagers(accounts, findings);
}
