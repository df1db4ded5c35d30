#include "companions/list/account_list.h"

#include <fcntl.h>

#include <algorithm>
#include <exception>
#include <map>
#include <set>
#include <stdexcept>

#include "companions/list/processor_time.h"
#include "companions/list/whole_registry.h"
#include "container/container_status.h"
#include "container/network.h"
#include "util/ip_network.h"
#include "util/settings.h"
#include "util/string_util.h"
#include "util/util.h"

namespace {

// The exit statuses of an init script's "status" in the Linux Standard Base; 1 is its "dead, but
// files are left".
constexpr int kRunning = 0;
constexpr int kHalf = 1;
constexpr int kNotRunning = 3;
constexpr int kUnknown = 4;

int statusOf(ContainerState state) {
    switch (state) {
        case ContainerState::Running:
            return kRunning;
        case ContainerState::Stopped:
            return kNotRunning;
        default:
            return kHalf;
    }
}

/// Data that is read once for all accounts.
struct Host {
    std::map<std::string, std::string> networks;  ///< of the registry's accounts, by name
    std::vector<std::string> names;               ///< in the registry's order, each once
    std::set<std::string> usersOfFiles;
};

Host readHost() {
    Host host;
    readWholeRegistry(kAccountRegistry, [&host](const RegistryLine& line) {
        // of several lines start uses the first: at the others the container is already running
        if (host.networks.emplace(line.account.name, line.account.net).second) {
            host.names.push_back(line.account.name);
        }
    });
    host.usersOfFiles = namespaceFileUsers();
    return host;
}

void addNetwork(ListedAccount& listed, const std::string& network) {
    if (network.empty()) {
        return;
    }
    listed.network = network;
    try {
        const IpNetwork parsed(network);
        listed.hostAddress = hostEndOf(parsed);
        listed.address = containerEndOf(parsed);
    } catch (const std::runtime_error&) {
        // kiv-check(8) reports what is wrong with it
    }
}

/// The limit, if there is one. `value` is 0 both for a limit of 0 and for a file that could not be
/// read; the file tells them apart.
std::optional<std::int64_t> limit(std::int64_t value, const std::string& file) {
    if (value == 0 && readFirstLine(AT_FDCWD, file).empty()) {
        return std::nullopt;
    }
    return value >= 0 ? std::optional(value) : std::nullopt;
}

void addFigures(ListedAccount& listed, const ContainerHandle& handle) {
    ContainerStatus status(handle);
    collectStatus(status);
    if (status.hasProcesses) {
        listed.processes = status.pidsCurrent;
        listed.processesLimit = limit(status.pidsMax, handle.getCgroupPath() + kProcessesLimitFile);
    }
    if (status.hasMemory) {
        listed.memory = status.memoryCurrent;
        listed.memoryLimit = limit(status.memoryHigh, handle.getCgroupPath() + kMemoryLimitFile);
    }
    if (status.active) {
        const ProcessorTime time = processorTimeOf(handle.getCgroupPath());
        listed.cpu = time.used;
        listed.cpuLimit = time.limit;
    }
}

void addTimes(ListedAccount& listed) {
    for (const NamespaceKind& kind : kNamespaceKinds) {
        const auto pinned = pinnedAt(namespaceFile(listed.account, kind.name));
        // the network namespace comes first, and a refresh does not replace it
        if (pinned && !listed.since) {
            listed.since = pinned;
        }
        if (pinned && kind.flag == CLONE_NEWNS) {
            listed.outdated = haveChangedSince(*pinned, {kDefaultConfigFile, kPackageStatus});
        }
    }
}

/// Throws std::exception with the reason when the account cannot be listed.
ListedAccount describe(const std::string& name, const Host& host) {
    ListedAccount listed;
    listed.account = name;
    const bool hasFiles = host.usersOfFiles.contains(name);
    const auto registered = host.networks.find(name);
    const bool isRegistered = registered != host.networks.end();
    if (isRegistered) {
        addNetwork(listed, registered->second);
    }
    if (hasFiles && !Util::findUser(name)) {
        listed.state = ContainerState::Orphaned;
    } else {
        const ContainerHandle handle(name);
        if (!isRegistered && !hasFiles) {
            throw std::runtime_error(name + ": KIV not configured for requested user");
        }
        listed.uid = handle.uid;
        listed.state = isRegistered ? settledStateOf(handle) : ContainerState::Orphaned;
        addFigures(listed, handle);
    }
    listed.interface = hostInterfaceName(name);
    if (listed.state != ContainerState::Stopped) {
        addTimes(listed);
    }
    return listed;
}

/// One line for the failure, even when the name has a newline. The name is not repeated when the
/// text begins with it, which most do.
std::string failureOf(const std::string& name, const std::string& text) {
    const std::string prefix = name + ": ";
    return StringUtil::escapeControls(text.starts_with(prefix) ? text : prefix + text);
}

}  // namespace

AccountList listAccounts(const std::vector<std::string>& users) {
    const Host host = readHost();
    std::vector<std::string> names = users;
    if (users.empty()) {
        names = host.names;
        std::copy_if(host.usersOfFiles.begin(), host.usersOfFiles.end(), std::back_inserter(names),
                     [&host](const std::string& name) { return !host.networks.contains(name); });
    }
    AccountList result;
    for (const std::string& name : names) {
        try {
            result.accounts.push_back(describe(name, host));
            result.status = std::max(result.status, statusOf(result.accounts.back().state));
        } catch (const std::exception& error) {
            result.failures.push_back(failureOf(name, error.what()));
            result.status = kUnknown;
        }
    }
    return result;
}
