#include "container/packet_rules.h"

namespace {

constexpr const char* kContainerRange = "100.64.0.0/10";

}  // namespace

std::list<std::string> PacketRule::arguments(const std::string& action) const {
    std::list<std::string> words = table;
    words.push_back(action);
    words.push_back(chain);
    words.insert(words.end(), match.begin(), match.end());
    return words;
}

PacketRule masqueradeRule(const std::string& defaultInterface) {
    return {{"-t", "nat"},
            "POSTROUTING",
            {"-s", kContainerRange, "-o", defaultInterface, "-j", "MASQUERADE"}};
}

PacketRule databaseRule(const std::string& hostInterface, const std::string& hostAddress) {
    return {{"-t", "nat"},
            "PREROUTING",
            {"-i", hostInterface, "-p", "tcp", "-d", hostAddress, "--dport", "3306", "-j", "DNAT",
             "--to-destination", "127.0.0.1:3306"}};
}

PacketRule rejectRule(const std::string& hostInterface) {
    return {{}, "INPUT", {"-i", hostInterface, "-d", kContainerRange, "-j", "REJECT"}};
}
