#include "companions/check/network_checks.h"

#include <fcntl.h>

#include <algorithm>
#include <list>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "config/configuration.h"
#include "container/container_status.h"
#include "container/default_route.h"
#include "container/network.h"
#include "container/packet_rules.h"
#include "util/directory_stream.h"
#include "util/errors.h"
#include "util/external_command.h"
#include "util/line_reader.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

constexpr const char* kForwarding = "/proc/sys/net/ipv4/ip_forward";
constexpr const char* kAddresses6 = "/proc/net/if_inet6";
constexpr const char* kInterfaces = "/sys/class/net";
constexpr const char* kFirewallTable = "kivctl";  // in dist/nftables/kivctl.nft
// in dist/nftables/kivctl.iptables
constexpr const char* kFirewallJump = "-A INPUT -i veth-+ -j kivctl-input";
constexpr const char* kFirewallNatJumps[] = {"-A PREROUTING -i veth-+ -j kivctl-prerouting",
                                             "-A POSTROUTING -j kivctl-postrouting"};

using Lines = std::vector<std::string>;

/// The output of a tool; nothing when the tool fails.
std::optional<Lines> linesOfTool(const std::string& tool, std::list<std::string> arguments) {
    ExternalCommand command(tool, std::move(arguments));
    std::string output;
    std::string errors;
    command.setStdout(&output);
    command.setStderr(&errors);
    if (command.execute() != 0) {
        return std::nullopt;
    }
    return StringUtil::split<Lines>(output, "\n", /*dropEmpty=*/true, false);
}

bool has(const std::string& line, const std::string& part) {
    return (line + " ").find(" " + part + " ") != std::string::npos;
}

/// The word after "-i"; empty without one.
std::string interfaceOf(const std::string& line) {
    WordReader words(line, " ");
    for (auto word = words.next(); !word.empty(); word = words.next()) {
        if (word == "-i") {
            return std::string(words.next());
        }
    }
    return "";
}

std::set<std::string> interfacesWith(const Lines& rules, const char* target) {
    std::set<std::string> interfaces;
    for (const std::string& line : rules) {
        if (has(line, target)) {
            interfaces.insert(interfaceOf(line));
        }
    }
    return interfaces;
}

bool isOurs(const std::string& interface) {
    return interface.starts_with("veth-") || interface.starts_with("vpeer-");
}

bool contains(const std::optional<Lines>& lines, const std::string& line) {
    return lines && std::find(lines->begin(), lines->end(), line) != lines->end();
}

/// Both tables are checked: a flush of only nat removes source NAT and the database's rules.
bool hasFirewallJumps(const std::optional<Lines>& filter, const std::optional<Lines>& nat) {
    return contains(filter, kFirewallJump) &&
           std::all_of(std::begin(kFirewallNatJumps), std::end(kFirewallNatJumps),
                       [&nat](const char* jump) { return contains(nat, jump); });
}

bool hasFirewallTable() {
    const auto tables = linesOfTool("nft", {"list", "tables"});
    return tables && std::any_of(tables->begin(), tables->end(),
                                 [](const std::string& line) { return has(line, kFirewallTable); });
}

std::string joined(const std::list<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        line += (line.empty() ? "" : " ") + word;
    }
    return line;
}

class Checks {
public:
    Checks(const HostAccounts& known, Findings& target);

    void checkForwarding() const;
    void checkFirewall() const;
    void checkSourceNat() const;
    void checkContainerRules() const;
    void checkLeftRules() const;
    void checkLeftInterfaces() const;
    void checkIpv6() const;

    bool canReadRules() const { return filter && nat; }

private:
    const HostAccounts& accounts;
    Findings& findings;
    std::optional<Lines> filter = linesOfTool(configuration().iptablesCommand, {"-S"});
    std::optional<Lines> nat = linesOfTool(configuration().iptablesCommand, {"-t", "nat", "-S"});
    bool firewallTable = hasFirewallTable();
    bool firewall = firewallTable || hasFirewallJumps(filter, nat);  ///< for IPv4
    std::set<std::string> interfaces;  ///< of containers with a network
    std::set<std::string> refused;     ///< interfaces with a rule that rejects
    std::set<std::string> redirected;  ///< interfaces with a rule for the database
};

Checks::Checks(const HostAccounts& known, Findings& target) : accounts(known), findings(target) {
    for (const HostAccount& account : accounts.all) {
        if (account.networkNamespace != 0) {
            interfaces.insert(account.interface);
        }
    }
    if (filter && nat) {
        refused = interfacesWith(*filter, "-j REJECT");
        redirected = interfacesWith(*nat, "-j DNAT");
    }
}

void Checks::checkForwarding() const {
    if (readFirstLine(AT_FDCWD, kForwarding) == "0") {
        FindingsOf(findings, kForwarding)
            .warn(0, "forwarding is off: containers have no way out, set net.ipv4.ip_forward=1");
    }
}

void Checks::checkFirewall() const {
    if (!firewall && !interfaces.empty()) {
        FindingsOf(findings, "nft")
            .note(0,
                  "the containers' firewall is not loaded: they reach each other and the host's "
                  "loopback "
                  "addresses unless other rules refuse that, enable kivctl-firewall.service");
    }
}

void Checks::checkSourceNat() const {
    if (firewall || interfaces.empty()) {
        return;
    }
    const FindingsOf tool(findings, "iptables");
    std::string interface;
    try {
        interface = detectDefaultInterface();
    } catch (const std::runtime_error& error) {
        FindingsOf(findings, kRouteTable)
            .warn(0, std::string(error.what()) + ": containers have no way out");
        return;
    }
    PacketRule rule = masqueradeRule(interface);
    rule.table.clear();  // iptables -S prints none
    const std::string wanted = joined(rule.arguments("-A"));
    if (!contains(nat, wanted)) {
        tool.warn(
            0,
            "the source-NAT rule is missing, and no firewall table is loaded: containers have "
            "no way out, run iptables -t nat " +
                wanted);
    }
}

void Checks::checkContainerRules() const {
    if (firewall) {
        return;  // it has both rules for all containers
    }
    for (const HostAccount& account : accounts.all) {
        const FindingsOf tool(findings, "iptables");
        if (account.state != ContainerState::Running) {
            continue;
        }
        if (!refused.contains(account.interface)) {
            tool.warn(0, "the container of '" + account.name +
                             "' lacks its rule in INPUT: the host's ports are open to it, stop and "
                             "start it");
        }
        if (!redirected.contains(account.interface)) {
            tool.warn(0, "the container of '" + account.name +
                             "' lacks its rule in PREROUTING: it cannot reach the database, stop "
                             "and start it");
        }
    }
}

void Checks::checkLeftRules() const {
    for (const auto& [option, rules] :
         {std::pair(std::string("iptables "), &*filter), {"iptables -t nat ", &*nat}}) {
        for (const std::string& line : *rules) {
            const std::string interface = interfaceOf(line);
            if (isOurs(interface) && interface.back() != '+' && !interfaces.contains(interface) &&
                line.starts_with("-A ")) {
                FindingsOf(findings, "iptables")
                    .warn(0, "a rule is left behind for " + interface + ": run " + option + "-D " +
                                 line.substr(3));
            }
        }
    }
}

void Checks::checkLeftInterfaces() const {
    const DirectoryStream directory(::opendir(kInterfaces));
    if (directory == nullptr) {
        throw systemError("Cannot open ", kInterfaces, ": ");
    }
    while (const dirent* found = nextEntry(directory)) {
        const std::string name = found->d_name;
        if (isOurs(name) && !interfaces.contains(name)) {
            FindingsOf(findings, kInterfaces + ("/" + name))
                .warn(0, "the interface is left behind: run ip link delete " + name);
        }
    }
    if (errno != 0) {
        throw systemError("cannot read ", kInterfaces, ": ");
    }
}

void Checks::checkIpv6() const {
    LineReader addresses(kAddresses6);
    std::string line;
    bool reachable = false;
    while (addresses.next(line)) {
        reachable = reachable || interfaces.contains(line.substr(line.rfind(' ') + 1));
    }
    if (!reachable || firewallTable) {
        return;
    }
    const auto rules = linesOfTool("ip6tables", {"-S", "INPUT"});
    const bool isRefused =
        rules && std::any_of(rules->begin(), rules->end(), [](const std::string& rule) {
            return rule == kFirewallJump || (interfaceOf(rule).starts_with("veth-") &&
                                             (has(rule, "-j REJECT") || has(rule, "-j DROP")));
        });
    if (!isRefused) {
        FindingsOf(findings, kAddresses6)
            .warn(0,
                  "containers reach the host's ports by IPv6: load the firewall table, or run "
                  "ip6tables -I INPUT -i veth-+ -j REJECT");
    }
}

}  // namespace

void checkNetwork(const HostAccounts& accounts, Findings& findings) {
    const Checks checks(accounts, findings);
    if (!accounts.all.empty()) {
        checks.checkForwarding();
    }
    if (checks.canReadRules()) {
        checks.checkFirewall();
        checks.checkSourceNat();
        checks.checkContainerRules();
        checks.checkLeftRules();
    } else {
        FindingsOf(findings, "iptables")
            .warn(0, "the packet rules cannot be listed: run iptables -S");
    }
    checks.checkLeftInterfaces();
    checks.checkIpv6();
}
