#include "container/packet_rules.h"

namespace {

constexpr const char* kContainerRange = "100.64.0.0/10";
constexpr std::int32_t kNoSuchRule = 1;  // of iptables(8) -D; other failures have other statuses
constexpr const char* kLoopback = "127.0.0.1";
constexpr const char* kDatabasePort = "3306";

std::string withDatabasePort(const std::string& address) {
    return address + ":" + kDatabasePort;
}

}  // namespace

std::list<std::string> PacketRule::arguments(const std::string& action) const {
    std::list<std::string> words = table;
    words.push_back(action);
    words.push_back(chain);
    words.insert(words.end(), match.begin(), match.end());
    return words;
}

bool meansRuleIsGone(std::int32_t result) {
    return result == 0 || result == kNoSuchRule;
}

PacketRule masqueradeRule(const std::string& defaultInterface) {
    return {{"-t", "nat"},
            "POSTROUTING",
            {"-s", kContainerRange, "-o", defaultInterface, "-j", "MASQUERADE"}};
}

PacketRule databaseRule(const std::string& hostInterface, const std::string& hostAddress) {
    return {{"-t", "nat"},
            "PREROUTING",
            {"-i", hostInterface, "-p", "tcp", "-d", hostAddress, "--dport", kDatabasePort, "-j",
             "DNAT", "--to-destination", withDatabasePort(kLoopback)}};
}

PacketRule rejectRule(const std::string& hostInterface) {
    return {{}, "INPUT", {"-i", hostInterface, "-d", kContainerRange, "-j", "REJECT"}};
}

PacketRule loopbackDatabaseRule(const std::string& hostAddress) {
    return {{"-t", "nat"},
            "OUTPUT",
            {"-s", kLoopback, "-p", "tcp", "-d", kLoopback, "--dport", kDatabasePort, "-j", "DNAT",
             "--to", withDatabasePort(hostAddress)}};
}

PacketRule loopbackMasqueradeRule(const std::string& hostAddress, const std::string& interface) {
    return {{"-t", "nat"},
            "POSTROUTING",
            {"-s", kLoopback, "-d", hostAddress, "-o", interface, "-j", "MASQUERADE"}};
}
