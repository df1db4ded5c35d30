// The order of the host tools' calls on both ends of a link, with tools that only record them.
#include "container/network.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <stdexcept>

#include "../fs/narrowed_process.h"
#include "../fs/temporary_directory.h"
#include "../util/captured.h"
#include "../util/child_process.h"
#include "container/default_route.h"

namespace {

/// The replacements of the tools append their arguments, joined by "|", to the file "calls". The
/// call that is in the file "failing" exits with status 3. PATH has nothing else: a real tool is
/// never run.
constexpr const char* kTool = R"(#!/bin/sh
IFS='|'
call="${0##*/}|$*"
echo "$call" >>"${0%/*}/calls"
read -r failing <"${0%/*}/failing"
if [ "$call" = "$failing" ]; then exit 3; fi
)";

class LinkSetUp : public testing::Test {
protected:
    LinkSetUp() {
        for (const char* tool : {"/ip", "/iptables", "/sysctl"}) {
            directory.write(tool, kTool);
            ::chmod(directory.at(tool).c_str(), 0755);
        }
        fail("none");
    }

    void fail(const std::string& call) { directory.write("/failing", call + "\n"); }

    /// The result of `setUp` with only the replacements on PATH.
    int run(const std::function<int()>& setUp) {
        const auto result = inChild([this, &setUp] {
            require(::setenv("PATH", directory.path.c_str(), 1) == 0);
            return setUp();
        });
        errors = result.errorOutput;
        return outcome(result);
    }

    int runHostSide() {
        return run([this] {
            [[maybe_unused]] const bool moved = setUpHostSide(link, 4711);
            return 0;
        });
    }

    bool runContainerSide(std::optional<gid_t> group) {
        return run([this, group] { return setUpContainerSide(link, group) ? 0 : 1; }) == 0;
    }

    std::string calls() { return directory.read("/calls"); }

    /// The MTU that the host side also uses.
    static std::string defaultMtu() {
        Captured standardError(STDERR_FILENO);
        const std::string mtu = std::to_string(detectDefaultMtu());
        return mtu;
    }

    TemporaryDirectory directory;
    // a name that no host has: what is removed depends on the interfaces that exist
    ContainerLink link = {"veth-nobody", "vpeer-nobody", "100.64.0.5", "100.64.0.6", 30};
    std::string errors;
};

TEST_F(LinkSetUp, OnTheHostTakesTheseSteps) {
    EXPECT_EQ(runHostSide(), 0);
    EXPECT_EQ(calls(), "ip|link|add|veth-nobody|type|veth|peer|name|vpeer-nobody|mtu|" +
                           defaultMtu() +
                           "\n"
                           "ip|link|set|vpeer-nobody|netns|4711\n"
                           "sysctl|-q|-w|net.ipv4.conf.veth-nobody.route_localnet=1\n"
                           "iptables|-t|nat|-I|PREROUTING|-i|veth-nobody|-p|tcp|-d|100.64.0.5|"
                           "--dport|3306|-j|DNAT|--to-destination|127.0.0.1:3306\n"
                           "iptables|-A|INPUT|-i|veth-nobody|-d|100.64.0.0/10|-j|REJECT\n"
                           "ip|addr|add|100.64.0.5/30|dev|veth-nobody\n"
                           "ip|link|set|veth-nobody|up|mtu|" +
                           defaultMtu() + "\n");
}

TEST_F(LinkSetUp, OnTheHostContinuesAfterAFailure) {
    fail("ip|link|set|vpeer-nobody|netns|4711");
    EXPECT_EQ(runHostSide(), 0);
    const std::string all = calls();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 7);
    EXPECT_NE(errors.find("exit code 3: ip link set vpeer-nobody netns 4711\n"), std::string::npos)
        << errors;
}

TEST_F(LinkSetUp, OnTheHostSeparatesBySlashesWhereTheNameHasADot) {
    link.hostInterface = "veth-a.b";
    EXPECT_EQ(runHostSide(), 0);
    EXPECT_NE(calls().find("sysctl|-q|-w|net/ipv4/conf/veth-a.b/route_localnet=1\n"),
              std::string::npos)
        << calls();
}

/// An iptables that deletes as many rules as the file "rules" says, and then has none left.
constexpr const char* kCountingTool = R"sh(#!/bin/sh
IFS='|'
echo "${0##*/}|$*" >>"${0%/*}/calls"
echo output
echo errors >&2
read -r rules <"${0%/*}/rules"
if [ "$rules" = 0 ]; then exit 1; fi
echo "$((rules - 1))" >"${0%/*}/rules"
)sh";

class RulesLeft : public LinkSetUp {
protected:
    void leave(int rules) {
        directory.write("/iptables", kCountingTool);
        directory.write("/rules", std::to_string(rules) + "\n");
    }

    int remove() {
        return run([this] {
            return static_cast<int>(removeLeftNetwork(link.hostInterface, link.hostAddress));
        });
    }

    long callsFor(const std::string& chain) {
        const std::string all = calls();
        long count = 0;
        for (auto hit = all.find(chain); hit != std::string::npos; hit = all.find(chain, hit + 1)) {
            ++count;
        }
        return count;
    }
};

TEST_F(RulesLeft, AreRemovedWithAllCopiesAndSilently) {
    leave(2);
    EXPECT_EQ(remove(), 0);
    const std::string reject = "iptables|-D|INPUT|-i|veth-nobody|-d|100.64.0.0/10|-j|REJECT\n";
    EXPECT_EQ(calls(), reject + reject + reject +
                           "iptables|-t|nat|-D|PREROUTING|-i|veth-nobody|-p|tcp|-d|100.64.0.5|"
                           "--dport|3306|-j|DNAT|--to-destination|127.0.0.1:3306\n");
    EXPECT_EQ(errors, "");
}

TEST_F(RulesLeft, DoNotDelayAStartWhoseIptablesAlwaysSucceeds) {
    leave(1000);
    EXPECT_EQ(remove(), 0);
    EXPECT_EQ(callsFor("|INPUT|"), 16);
    EXPECT_EQ(callsFor("|PREROUTING|"), 16);
}

TEST_F(RulesLeft, MayStillBeThereWhenIptablesFailsOrTheAddressIsNotKnown) {
    leave(0);
    EXPECT_EQ(remove(), 0);
    constexpr int kUnknown = static_cast<int>(LeftRules::Unknown);
    EXPECT_EQ(run([this] {
                  return static_cast<int>(removeLeftNetwork(link.hostInterface, std::nullopt));
              }),
              kUnknown);
    for (const char* status : {"2", "4"}) {
        directory.write("/iptables", std::string("#!/bin/sh\nexit ") + status + "\n");
        EXPECT_EQ(remove(), kUnknown) << status;
    }
    directory.write("/iptables", "#!/bin/sh\nexit 255\n");
    EXPECT_EQ(remove(), static_cast<int>(LeftRules::NoTool));
}

TEST_F(LinkSetUp, InTheContainerTakesTheseSteps) {
    EXPECT_TRUE(runContainerSide(1'001));
    EXPECT_EQ(errors, "");
    EXPECT_EQ(calls(),
              "ip|link|set|dev|vpeer-nobody|name|veth0\n"
              "ip|addr|add|100.64.0.6/30|dev|veth0\n"
              "ip|link|set|veth0|up\n"
              "ip|link|set|lo|up\n"
              "ip|route|add|default|via|100.64.0.5\n"
              "sysctl|-q|-w|net.ipv4.conf.veth0.route_localnet=1\n"
              "sysctl|-q|-w|net.ipv4.ping_group_range=1001 1001\n"
              "iptables|-t|nat|-A|POSTROUTING|-s|127.0.0.1|-d|100.64.0.5|-o|veth0|-j|MASQUERADE\n"
              "iptables|-t|nat|-A|OUTPUT|-s|127.0.0.1|-p|tcp|-d|127.0.0.1|--dport|3306|-j|DNAT|"
              "--to|100.64.0.5:3306\n");
}

TEST_F(LinkSetUp, InTheContainerEndsAtTheFirstFailure) {
    fail("ip|link|set|veth0|up");
    EXPECT_FALSE(runContainerSide(1'001));
    EXPECT_EQ(errors, "exit code 3: ip link set veth0 up\n");
    EXPECT_EQ(calls(),
              "ip|link|set|dev|vpeer-nobody|name|veth0\n"
              "ip|addr|add|100.64.0.6/30|dev|veth0\n"
              "ip|link|set|veth0|up\n");
}

TEST_F(LinkSetUp, InTheContainerLeavesThePingRangeAloneWithoutAGroup) {
    EXPECT_TRUE(runContainerSide(std::nullopt));
    const std::string all = calls();
    EXPECT_EQ(all.find("ping_group_range"), std::string::npos);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 8);
}

TEST_F(LinkSetUp, InTheContainerTakesGroupsBeyondTheSignedRange) {
    EXPECT_TRUE(runContainerSide(4'294'967'294));
    EXPECT_NE(calls().find("ping_group_range=4294967294 4294967294\n"), std::string::npos);
}

TEST(InterfaceNames, MayBeUsedWhenNeitherExists) {
    checkInterfaceNames({"absent-host0", "absent-peer0", "", "", 0});
}

TEST(InterfaceNames, AreRefusedUnderTheHostInterfacesNameForALeftOverPeer) {
    try {
        checkInterfaceNames({"absent-host0", "lo", "", "", 0});
        FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "absent-host0: already exists!");
    }
}

TEST(PlannedLink, NamesInterfacesAfterTheHashOfALongName) {
    ContainerHandle handle("daemon");
    handle.userName = "elevencharx";
    const ContainerLink link = planLink(handle, IpNetwork("100.64.0.4/30"));
    EXPECT_EQ(link.hostInterface, "veth-iDbKxq-F9");
    EXPECT_EQ(link.peerInterface, "vpeer-iDbKxq-F9");
}

TEST(PlannedLink, LetsAPeerNameOfSixteenCharactersPass) {
    ContainerHandle handle("daemon");
    handle.userName = "tencharact";
    EXPECT_EQ(planLink(handle, IpNetwork("100.64.0.4/30")).peerInterface, "vpeer-tencharact");
}

TEST(PlannedLink, OfASmallNetworkTakesItsTwoAddresses) {
    ContainerHandle handle("daemon");
    const ContainerLink link = planLink(handle, IpNetwork("100.64.0.4/30"));
    EXPECT_EQ(link.hostAddress, "100.64.0.5");
    EXPECT_EQ(link.containerAddress, "100.64.0.6");
    EXPECT_EQ(link.prefixLength, 30U);
}

TEST(PlannedLink, NamesTheAddressThatATooSmallNetworkLacks) {
    ContainerHandle handle("daemon");
    try {
        planLink(handle, IpNetwork("100.64.0.4/31"));
        FAIL() << "planned";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "network 100.64.0.4/31 has no address number 2");
    }
}

TEST(ContainerLink, TakesNamesFromTheShortNameAndAddressesFromTheNetwork) {
    ContainerHandle handle("daemon");
    const ContainerLink link = planLink(handle, IpNetwork("100.64.0.7/29"));
    EXPECT_EQ(link.hostInterface, "veth-daemon");
    EXPECT_EQ(link.peerInterface, "vpeer-daemon");
    EXPECT_EQ(link.hostAddress, "100.64.0.1");
    EXPECT_EQ(link.containerAddress, "100.64.0.2");
    EXPECT_EQ(link.prefixLength, 29U);
}

TEST(ContainerLink, NeedsTwoAddresses) {
    ContainerHandle handle("daemon");
    EXPECT_THROW(planLink(handle, IpNetwork("100.64.0.4/31")), std::runtime_error);
    EXPECT_THROW(planLink(handle, IpNetwork("100.64.0.4/32")), std::runtime_error);
}

}  // namespace
