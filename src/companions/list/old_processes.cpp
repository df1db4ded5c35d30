#include "companions/list/old_processes.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "container/namespace_processes.h"
#include "container/namespaces.h"
#include "container/replaced_files.h"
#include "util/runtime_directory.h"

namespace {

struct Container {
    const ListedAccount* account = nullptr;
    std::optional<std::uint64_t> view;  ///< the pinned one, once a process was found; 0 without one
    std::vector<pid_t> oldProcesses;
};

/// By the network namespace, which all views of a container share.
using Containers = std::map<std::uint64_t, Container>;

bool mayExamineProcesses() {
    static_assert(CAP_SYS_PTRACE < 32);  // in the first word
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> words{};
    return ::syscall(SYS_capget, &header, words.data()) == 0 &&
           (words.front().effective >> unsigned{CAP_SYS_PTRACE} & 1U) != 0;
}

std::uint64_t pinnedInode(const ListedAccount& account, const char* kind) {
    const std::string file = namespaceFile(account.account, kind);
    const bool isPinned = account.state == ContainerState::Running || mayBeNamespace(file);
    return isPinned ? inodeOf(file) : 0;
}

/// Reads the mappings only if something was replaced since the view was built: for all processes of
/// a host that takes longer than everything else.
bool isOld(Container& container, const ProcessPlace& place) {
    if (!container.view) {
        container.view = pinnedInode(*container.account, "mnt");
    }
    return (*container.view != 0 && place.mounts != *container.view) ||
           (container.account->outdated.value_or(false) &&
            hasReplacedFile(kProcesses + ("/" + std::to_string(place.pid))));
}

void findOldProcesses(Containers& containers) {
    const std::uint64_t ownView = getNamespaceInode(::getpid(), "mnt");
    for (const ProcessPlace& place : listProcessPlaces()) {
        const auto found = containers.find(place.network);
        // with our own view it is an administrator's tool that joined only the network
        if (found != containers.end() && place.mounts != ownView && isOld(found->second, place)) {
            found->second.oldProcesses.push_back(place.pid);
        }
    }
}

}  // namespace

void addOldProcesses(std::vector<ListedAccount>& accounts) {
    if (!mayExamineProcesses()) {
        return;
    }
    std::vector<std::uint64_t> networks;  // of the accounts, in their order; 0 without one
    Containers containers;
    for (const ListedAccount& account : accounts) {
        const bool isStopped = account.state == ContainerState::Stopped;
        networks.push_back(isStopped ? 0 : pinnedInode(account, "net"));
        if (networks.back() != 0) {
            containers[networks.back()].account = &account;
        }
    }
    if (containers.empty()) {
        return;
    }
    findOldProcesses(containers);
    for (std::size_t i = 0; i < accounts.size(); ++i) {
        const auto found = containers.find(networks[i]);
        if (found != containers.end()) {
            accounts[i].oldProcesses = found->second.oldProcesses;
        }
    }
}
