// Checks of a registry; the test supplies the host's networks. The users daemon, bin and sys are on
// every Debian.
#include "companions/check/registry_checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "../../fs/temporary_directory.h"
#include "../../util/failure_of.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RegistryChecks : public testing::Test {
protected:
    /// Each finding as "LINE SEVERITY MESSAGE".
    std::vector<std::string> found(const std::string& registry,
                                   const std::vector<HostNetwork>& used = {}) {
        Findings findings;
        checkRegistry(directory.write("/users", registry), used, findings);
        constexpr const char* kNames[] = {"note", "warning", "error"};
        std::vector<std::string> texts;
        for (const Finding& finding : findings) {
            texts.push_back(std::to_string(finding.line) + " " +
                            kNames[static_cast<int>(finding.severity)] + " " + finding.message);
        }
        return texts;
    }

    TemporaryDirectory directory;
};

TEST_F(RegistryChecks, FindNothingInACorrectRegistry) {
    EXPECT_THAT(found("# accounts\n\ndaemon net=100.64.0.4/30\nbin net=100.64.0.8/30\n"),
                IsEmpty());
    EXPECT_THAT(found(""), IsEmpty());
}

TEST_F(RegistryChecks, NameUsersThatCannotHaveAContainer) {
    EXPECT_THAT(
        found("root net=100.64.0.4/30\nno-such net=100.64.0.8/30\na@b net=100.64.0.12/30\n"),
        ElementsAre("1 error 'root' is root: root cannot have a container",
                    "2 error there is no user 'no-such': delete the line, or add the user",
                    "3 error 'a@b': a user name with '@' cannot have a container"));
}

TEST_F(RegistryChecks, NameSettingsThatAreNotUnderstood) {
    EXPECT_THAT(found("daemon nett=100.64.0.4/30\n"),
                ElementsAre("1 warning unknown setting 'nett=100.64.0.4/30': the only one is net=, "
                            "and a user name cannot have blanks",
                            "1 error 'daemon' has no network: add net= and a network, or the "
                            "account cannot be started"));
}

TEST_F(RegistryChecks, JudgeEachNetwork) {
    EXPECT_THAT(
        found("daemon net=100.64.0.4/31\nbin net=100.63.255.252/29\nsys net=100.64.0.9/30\n"),
        ElementsAre("1 error '100.64.0.4/31' is too small: a network needs four addresses, a /30",
                    "2 note '100.63.255.252/29' means 100.63.255.248/29",
                    "2 error '100.63.255.252/29' is not within 100.64.0.0/10: the container has no "
                    "way out, and the host's ports are open to it",
                    "3 note '100.64.0.9/30' means 100.64.0.8/30"));
    EXPECT_THAT(found("daemon net=100.127.255.252/30\n"), IsEmpty());
    EXPECT_THAT(found("daemon net=100.128.0.0/30\n").size(), 1U);
    EXPECT_THAT(found("daemon net=100.64.0.4\n"),
                ElementsAre("1 error malformed network '100.64.0.4': write one as 100.64.0.4/30"));
}

TEST_F(RegistryChecks, NameTheEarlierLineOfTwo) {
    EXPECT_THAT(found("daemon net=100.64.0.4/30\ndaemon net=100.64.0.8/30\n"),
                ElementsAre("2 warning 'daemon' is listed already, see line 1: delete one of the "
                            "two lines"));
    EXPECT_THAT(found("daemon net=100.64.0.8/30\nbin net=100.64.0.0/24\nsys net=100.64.0.12/30\n"),
                ElementsAre("2 error '100.64.0.0/24' overlaps the network of 'daemon', see line 1: "
                            "one of the two is cut off, choose another",
                            "3 error '100.64.0.12/30' overlaps the network of 'bin', see line 2: "
                            "one of the two is cut off, choose another"));
}

TEST_F(RegistryChecks, CompareWithTheHostsNetworks) {
    const HostNetwork uplink{rangeOf(IpNetwork("100.64.0.0/24")), "eth0"};
    EXPECT_THAT(found("daemon net=100.64.0.4/30\nbin net=100.64.1.4/30\n", {uplink}),
                ElementsAre("1 error '100.64.0.4/30' is in use on the host, at eth0: choose "
                            "another network"));
}

TEST_F(RegistryChecks, AllowTheNetworkOfARunningContainer) {
    const HostNetwork own{rangeOf(IpNetwork("100.64.0.4/30")), "veth-daemon"};
    EXPECT_THAT(found("daemon net=100.64.0.4/30\n", {own}), IsEmpty());
    EXPECT_THAT(found("daemon net=100.64.0.8/30\nbin net=100.64.0.4/30\n", {own}),
                ElementsAre("2 error '100.64.0.4/30' is in use on the host, at veth-daemon: choose "
                            "another network"));
}

TEST_F(RegistryChecks, NeedTheWholeFile) {
    Findings findings;
    EXPECT_EQ(failureOf([&] { checkRegistry(directory.at("/absent"), {}, findings); }),
              "cannot open " + directory.at("/absent") + ": No such file or directory");
    EXPECT_NE(failureOf([&] { checkRegistry(directory.path, {}, findings); }), "");
}

}  // namespace
