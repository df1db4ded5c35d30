#include "container/packet_rules.h"

#include <gtest/gtest.h>

namespace {

using List = std::list<std::string>;

TEST(PacketRules, LetContainersOutThroughTheDefaultInterface) {
    EXPECT_EQ(masqueradeRule("eth0").arguments("-C"),
              (List{"-t", "nat", "-C", "POSTROUTING", "-s", "100.64.0.0/10", "-o", "eth0", "-j",
                    "MASQUERADE"}));
}

TEST(PacketRules, ForwardTheDatabasePortToTheHostsLoopback) {
    EXPECT_EQ(
        databaseRule("veth-x", "100.64.0.5").arguments("-I"),
        (List{"-t", "nat", "-I", "PREROUTING", "-i", "veth-x", "-p", "tcp", "-d", "100.64.0.5",
              "--dport", "3306", "-j", "DNAT", "--to-destination", "127.0.0.1:3306"}));
}

TEST(PacketRules, RejectTheRestOfThePrivateRange) {
    EXPECT_EQ(rejectRule("veth-x").arguments("-A"),
              (List{"-A", "INPUT", "-i", "veth-x", "-d", "100.64.0.0/10", "-j", "REJECT"}));
}

TEST(PacketRules, AppendTheMasqueradeRuleThatWasMissing) {
    EXPECT_EQ(masqueradeRule("bond0.12").arguments("-A"),
              (List{"-t", "nat", "-A", "POSTROUTING", "-s", "100.64.0.0/10", "-o", "bond0.12", "-j",
                    "MASQUERADE"}));
}

TEST(PacketRules, DeleteTheRejectRuleAsItWasAdded) {
    EXPECT_EQ(rejectRule("veth-x").arguments("-D"),
              (List{"-D", "INPUT", "-i", "veth-x", "-d", "100.64.0.0/10", "-j", "REJECT"}));
}

TEST(PacketRules, DeleteTheDatabaseRuleAsItWasAdded) {
    EXPECT_EQ(
        databaseRule("veth-x", "100.64.0.5").arguments("-D"),
        (List{"-t", "nat", "-D", "PREROUTING", "-i", "veth-x", "-p", "tcp", "-d", "100.64.0.5",
              "--dport", "3306", "-j", "DNAT", "--to-destination", "127.0.0.1:3306"}));
}

TEST(PacketRules, PassEachNameAsOneArgument) {
    EXPECT_EQ(rejectRule("a b\n").arguments("-A"),
              (List{"-A", "INPUT", "-i", "a b\n", "-d", "100.64.0.0/10", "-j", "REJECT"}));
}

}  // namespace
