#include "companions/check/host_accounts.h"

#include <list>
#include <set>
#include <stdexcept>
#include <utility>

#include "companions/list/whole_registry.h"
#include "container/namespaces.h"
#include "container/network.h"

namespace {

std::uint64_t pinnedInode(const std::string& name, const char* kind) {
    const std::string file = namespaceFile(name, kind);
    return mayBeNamespace(file) ? inodeOf(file) : 0;
}

ContainerState stateFor(const HostAccount& account, bool isRegistered, bool hasFiles) {
    if (hasFiles && (!account.user || !isRegistered)) {
        return ContainerState::Orphaned;
    }
    try {
        return settledStateOf(ContainerHandle(account.name));
    } catch (const std::runtime_error&) {
        return ContainerState::Stopped;  // the name cannot have one; checkRegistry reports it
    }
}

HostAccount readAccount(const std::string& name, const std::string& network, bool isRegistered,
                        bool hasFiles) {
    HostAccount account;
    account.name = name;
    account.user = Util::findUser(name);
    account.isRegistered = isRegistered;
    account.network = network;
    account.interface = hostInterfaceName(name);
    account.state = stateFor(account, isRegistered, hasFiles);
    account.networkNamespace = pinnedInode(name, "net");
    account.mountNamespace = pinnedInode(name, "mnt");
    return account;
}

}  // namespace

HostAccounts readHostAccounts(const std::string& registry) {
    std::set<std::string> files = namespaceFileUsers();
    std::set<std::string> seen;
    HostAccounts accounts;
    readWholeRegistry(registry, [&](const RegistryLine& line) {
        const std::string& name = line.account.name;
        if (seen.insert(name).second) {
            accounts.all.push_back(readAccount(name, line.account.net, true, files.contains(name)));
        }
    });
    for (const std::string& name : files) {
        if (!seen.contains(name)) {
            accounts.all.push_back(readAccount(name, "", false, true));
        }
    }
    for (const HostAccount& account : accounts.all) {
        if (account.user && account.user->uid != 0) {
            accounts.byUser.emplace(account.user->uid, &account);
        }
        if (account.networkNamespace != 0) {
            accounts.byNetworkNamespace.emplace(account.networkNamespace, &account);
        }
    }
    return accounts;
}
