#include "companions/check/registry_checks.h"

#include <net/if.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>

#include "companions/list/whole_registry.h"
#include "container/network.h"
#include "util/ip_network.h"
#include "util/util.h"

namespace {

const AddressRange kContainerRange = {0x64400000, 0x647fffff};  // 100.64.0.0/10
constexpr std::size_t kLongestInterface = IFNAMSIZ - 1;

struct RegisteredAccount {
    unsigned long line = 0;
    std::string name;
    std::string network;
    std::optional<AddressRange> range;
};

class Checks {
public:
    Checks(const std::string& path, Findings& all) : findings(all, path) {}

    void take(const RegistryLine& line);

    /// The checks that need all lines.
    void finish(const std::vector<HostNetwork>& used) const;

private:
    void checkUser(const RegistryLine& line) const;
    std::optional<AddressRange> checkNetwork(const RegistryLine& line) const;
    void checkNames() const;
    void checkOverlaps() const;
    void checkHostNetworks(const std::vector<HostNetwork>& used) const;

    FindingsOf findings;
    std::vector<RegisteredAccount> accounts;
};

void Checks::checkUser(const RegistryLine& line) const {
    const std::string& name = line.account.name;
    if (name.find('@') != std::string::npos) {
        findings.error(line.number, "'" + name + "': a user name with '@' cannot have a container");
        return;
    }
    const auto user = Util::findUser(name);
    if (!user) {
        findings.error(line.number,
                       "there is no user '" + name + "': delete the line, or add the user");
    } else if (user->uid == 0) {
        findings.error(line.number, "'" + name + "' is root: root cannot have a container");
    }
    if (peerInterfaceName(name).size() > kLongestInterface) {
        findings.error(line.number, "'" + name +
                                        "' has ten characters, which makes an interface name that "
                                        "is too long: the container gets no network, rename the "
                                        "user");
    }
}

std::optional<AddressRange> Checks::checkNetwork(const RegistryLine& line) const {
    const std::string& text = line.account.net;
    if (text.empty()) {
        findings.error(line.number, "'" + line.account.name +
                                        "' has no network: add net= and a network, or the account "
                                        "cannot be started");
        return std::nullopt;
    }
    std::optional<IpNetwork> network;
    try {
        network.emplace(text);
    } catch (const std::runtime_error& error) {
        findings.error(line.number, std::string(error.what()) + ": write one as 100.64.0.4/30");
        return std::nullopt;
    }
    const AddressRange range = rangeOf(*network);
    if (range.last - range.first < 3) {
        findings.error(line.number,
                       "'" + text + "' is too small: a network needs four addresses, a /30");
    }
    const std::string meant =
        std::string(network->getAddress(0)) + "/" + std::to_string(network->bitmask());
    if (meant != text) {
        findings.note(line.number, "'" + text + "' means " + meant);
    }
    if (range.first < kContainerRange.first || range.last > kContainerRange.last) {
        findings.error(line.number, "'" + text +
                                        "' is not within 100.64.0.0/10: the container has no way "
                                        "out, and the host's ports are open to it");
    }
    return range;
}

void Checks::take(const RegistryLine& line) {
    for (const std::string& word : line.unknownSettings) {
        findings.warn(line.number, "unknown setting '" + word +
                                       "': the only one is net=, and a user name cannot have "
                                       "blanks");
    }
    checkUser(line);
    accounts.push_back({line.number, line.account.name, line.account.net, checkNetwork(line)});
}

void Checks::checkNames() const {
    std::map<std::string, const RegisteredAccount*> byName;
    std::map<std::string, const RegisteredAccount*> byShortName;
    for (const RegisteredAccount& account : accounts) {
        const auto [named, isNew] = byName.emplace(account.name, &account);
        if (!isNew) {
            findings.warn(account.line, "'" + account.name + "' is listed already, see line " +
                                            std::to_string(named->second->line) +
                                            ": delete one of the two lines");
            continue;
        }
        const auto [shortened, isOwn] = byShortName.emplace(shortNameOf(account.name), &account);
        if (!isOwn) {
            findings.error(account.line, "'" + account.name + "' and '" + shortened->second->name +
                                             "' have the same interface name, see line " +
                                             std::to_string(shortened->second->line) +
                                             ": only one can run, rename a user");
        }
    }
}

/// When networks are sorted by address, one overlaps an earlier one exactly when it begins before
/// the highest end so far.
void Checks::checkOverlaps() const {
    std::vector<const RegisteredAccount*> sorted;
    for (const RegisteredAccount& account : accounts) {
        if (account.range) {
            sorted.push_back(&account);
        }
    }
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto* one, const auto* other) {
        return one->range->first < other->range->first;
    });
    const RegisteredAccount* furthest = nullptr;
    for (const RegisteredAccount* account : sorted) {
        if (furthest != nullptr && furthest->name != account->name &&
            furthest->range->overlaps(*account->range)) {
            const bool isLater = account->line > furthest->line;
            const RegisteredAccount& later = isLater ? *account : *furthest;
            const RegisteredAccount& earlier = isLater ? *furthest : *account;
            findings.error(later.line, "'" + later.network + "' overlaps the network of '" +
                                           earlier.name + "', see line " +
                                           std::to_string(earlier.line) +
                                           ": one of the two is cut off, choose another");
        }
        if (furthest == nullptr || account->range->last >= furthest->range->last) {
            furthest = account;
        }
    }
}

void Checks::checkHostNetworks(const std::vector<HostNetwork>& used) const {
    std::map<std::string, const RegisteredAccount*> owners;
    for (const RegisteredAccount& account : accounts) {
        owners.emplace(hostInterfaceName(account.name), &account);
    }
    for (const RegisteredAccount& account : accounts) {
        const auto taken = std::find_if(used.begin(), used.end(), [&](const HostNetwork& network) {
            if (!account.range || !network.range.overlaps(*account.range)) {
                return false;
            }
            // leaves out the interface of a container that runs with its own listed network
            const auto owner = owners.find(network.interface);
            return owner == owners.end() || !owner->second->range ||
                   !owner->second->range->overlaps(network.range);
        });
        if (taken != used.end()) {
            findings.error(account.line, "'" + account.network + "' is in use on the host, at " +
                                             taken->interface + ": choose another network");
        }
    }
}

void Checks::finish(const std::vector<HostNetwork>& used) const {
    checkNames();
    checkOverlaps();
    checkHostNetworks(used);
}

}  // namespace

void checkRegistry(const std::string& path, const std::vector<HostNetwork>& used,
                   Findings& findings) {
    Findings found;
    Checks checks(path, found);
    readWholeRegistry(path, [&checks](const RegistryLine& line) { checks.take(line); });
    checks.finish(used);
    std::stable_sort(found.begin(), found.end(), [](const Finding& one, const Finding& other) {
        return one.line < other.line;
    });
    std::move(found.begin(), found.end(), std::back_inserter(findings));
}
