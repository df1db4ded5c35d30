#include "container/container_handle.h"

#include <gtest/gtest.h>
#include <pwd.h>

#include <limits>
#include <stdexcept>
#include <type_traits>

namespace {

std::string refusal(const std::string& name) {
    try {
        const ContainerHandle handle(name);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

/// A handle of an account that every Debian has, with another name: short names are computed from
/// the field.
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

// They must never change: interfaces and rules on existing hosts carry these names.
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

// The handle's layout, and the names that it derives.

/// An account that every host has, whose fields a test may change.
ContainerHandle anyHandle() {
    return ContainerHandle("daemon");
}

template <typename Field>
std::ptrdiff_t offsetIn(const ContainerHandle& handle, const Field& field) {
    return reinterpret_cast<const char*>(&field) - reinterpret_cast<const char*>(&handle);
}

TEST(HandleFields, AreInTheirOrderFromTheBeginning) {
    const ContainerHandle handle = anyHandle();
    constexpr auto kText = static_cast<std::ptrdiff_t>(sizeof(std::string));
    EXPECT_EQ(offsetIn(handle, handle.error), 0);
    EXPECT_EQ(offsetIn(handle, handle.userName), kText);
    EXPECT_EQ(offsetIn(handle, handle.shortName), 2 * kText);
    EXPECT_EQ(offsetIn(handle, handle.uid), 3 * kText);
}

TEST(HandleFields, AreTheWholeHandle) {
    EXPECT_EQ(sizeof(ContainerHandle),
              (sizeof(std::string) * 3 + sizeof(std::uint32_t) + alignof(std::string) - 1) /
                  alignof(std::string) * alignof(std::string));
    EXPECT_FALSE(std::is_polymorphic_v<ContainerHandle>);
    EXPECT_FALSE(std::is_copy_constructible_v<ContainerHandle>);
}

TEST(HandleFields, HoldTheUserIdOfThePasswordDatabase) {
    const ContainerHandle handle("nobody");
    const passwd* entry = ::getpwnam("nobody");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(handle.uid, entry->pw_uid);
}

TEST(RefusedHandle, NamesTheSignAtAnyPosition) {
    for (const std::string name : {"@", "@daemon", "daemon@", "a@b@c", "root@"}) {
        EXPECT_EQ(refusal(name), name + ": invalid character '@' in user name");
    }
}

TEST(RefusedHandle, HasAPathOrANulByte) {
    EXPECT_EQ(refusal("daemon/"), "daemon/: unknown user");
    EXPECT_EQ(refusal("/"), "/: unknown user");
    // the message ends at the NUL byte, like every text of what()
    EXPECT_EQ(refusal(std::string("daemon\0x", 8)), "daemon");
}

TEST(RefusedHandle, ComparesNamesExactly) {
    EXPECT_EQ(refusal("DAEMON"), "DAEMON: unknown user");
    EXPECT_EQ(refusal(" daemon"), " daemon: unknown user");
    EXPECT_EQ(refusal("daemon\n"), "daemon\n: unknown user");
}

TEST(CgroupPath, WritesTheUserIdAsAnUnsignedNumber) {
    ContainerHandle handle = anyHandle();
    handle.uid = 1'000;
    EXPECT_EQ(handle.getCgroupPath(), "/sys/fs/cgroup/user.slice/user-1000.slice");
    handle.uid = std::numeric_limits<std::uint32_t>::max();
    EXPECT_EQ(handle.getCgroupPath(), "/sys/fs/cgroup/user.slice/user-4294967295.slice");
}

TEST(NamespacePrefix, HoldsTheWholeUserName) {
    ContainerHandle handle = anyHandle();
    handle.userName = "a-user-name-longer-than-a-short-one";
    EXPECT_EQ(handle.getNamespacePrefix(), "/run/kiv/a-user-name-longer-than-a-short-one@");
}

TEST(DerivedShortName, HasNineCharactersOfInterfaceNamesForEveryLongName) {
    for (int i = 0; i < 2'000; ++i) {
        ContainerHandle handle = anyHandle();
        handle.userName = "customer-" + std::to_string(10 + i);
        const std::string name = handle.getShortName();
        EXPECT_EQ(name.size(), 9U);
        EXPECT_EQ(name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                         "0123456789-_"),
                  std::string::npos)
            << name;
    }
}

TEST(DerivedShortName, IsTheSameForEveryHandleOfAName) {
    ContainerHandle first = anyHandle();
    ContainerHandle second = anyHandle();
    first.userName = second.userName = "customer-0001";
    EXPECT_EQ(first.getShortName(), "aW4-QJ05Z");
    EXPECT_EQ(second.getShortName(), "aW4-QJ05Z");
}

TEST(DerivedShortName, IsComputedOnce) {
    ContainerHandle handle = anyHandle();
    handle.userName = "customer-0001";
    ASSERT_EQ(handle.getShortName(), "aW4-QJ05Z");
    handle.userName = "somebody-else";
    EXPECT_EQ(handle.getShortName(), "aW4-QJ05Z");
}

TEST(DerivedShortName, LeavesTheUserNameAsItIs) {
    ContainerHandle handle = anyHandle();
    handle.userName = "elevencharx";
    handle.getShortName();
    EXPECT_EQ(handle.userName, "elevencharx");
}

}  // namespace
