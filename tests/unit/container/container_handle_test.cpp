#include "container/container_handle.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "container/network.h"

namespace {

std::string refusal(const std::string& name) {
    try {
        const ContainerHandle handle(name);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

/// A handle of an account that every Debian has, under another name: short names derive from the
/// field.
class ShortName : public testing::Test {
protected:
    std::string of(const std::string& name) {
        ContainerHandle handle("daemon");
        handle.userName = name;
        return handle.getShortName();
    }
};

TEST(ContainerHandle, LooksTheAccountUp) {
    const ContainerHandle handle("daemon");
    EXPECT_EQ(handle.userName, "daemon");
    EXPECT_EQ(handle.uid, 1U);
    EXPECT_EQ(handle.error, "");
    EXPECT_EQ(handle.shortName, "");
}

TEST(ContainerHandle, RefusesAnAtSignBeforeItLooksTheNameUp) {
    EXPECT_EQ(refusal("daemon@x"), "daemon@x: invalid character '@' in user name");
}

TEST(ContainerHandle, RefusesAnUnknownUser) {
    EXPECT_EQ(refusal("no-such-user"), "no-such-user: unknown user");
    EXPECT_EQ(refusal(""), ": unknown user");
    EXPECT_EQ(refusal("../daemon"), "../daemon: unknown user");
}

TEST(ContainerHandle, RefusesRoot) {
    EXPECT_EQ(refusal("root"), "root: cannot create container for uid 0");
}

TEST(ContainerHandle, NamesTheAccountsPlaces) {
    const ContainerHandle handle("daemon");
    EXPECT_EQ(handle.getCgroupPath(), "/sys/fs/cgroup/user.slice/user-1.slice");
    EXPECT_EQ(handle.getNamespacePrefix(), "/run/kiv/daemon@");
}

TEST_F(ShortName, IsTheNameItselfUpToTenCharacters) {
    EXPECT_EQ(of("a"), "a");
    EXPECT_EQ(of("tencharact"), "tencharact");
}

// For ever: interfaces and rules on hosts carry these names.
TEST_F(ShortName, OfLongNamesIsPinned) {
    EXPECT_EQ(of("elevencharx"), "iDbKxq-F9");
    EXPECT_EQ(of("web-customer-000123"), "_btVRGmO5");
    EXPECT_EQ(of("a-user-name-of-thirty-two-chars-"), "xKMjiwcn_");
}

TEST_F(ShortName, StaysTheSame) {
    ContainerHandle handle("daemon");
    const std::string& first = handle.getShortName();
    EXPECT_EQ(&handle.getShortName(), &first);
    EXPECT_EQ(handle.shortName, "daemon");
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
