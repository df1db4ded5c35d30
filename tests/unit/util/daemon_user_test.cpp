#include <grp.h>
#include <gtest/gtest.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "child_process.h"
#include "util/daemon.h"

namespace {

constexpr uid_t kUser = 64'123;
constexpr gid_t kGroup = 64'124;

bool isRoot() {
    return ::geteuid() == 0;
}

/// Makes root an ordinary user; whoever is none already stays.
bool becomeOrdinary() {
    return !isRoot() || (::setgroups(0, nullptr) == 0 && ::setresgid(kGroup, kGroup, kGroup) == 0 &&
                         ::setresuid(kUser, kUser, kUser) == 0);
}

std::string ids() {
    std::array<uid_t, 3> users{};
    std::array<gid_t, 3> groups{};
    ::getresuid(users.data(), &users[1], &users[2]);
    ::getresgid(groups.data(), &groups[1], &groups[2]);
    std::string text;
    for (const uid_t id : users) {
        text += std::to_string(id) + " ";
    }
    for (const gid_t id : groups) {
        text += std::to_string(id) + " ";
    }
    return text;
}

TEST(DaemonChangeUser, OfAnOrdinaryUserFailsAndChangesNothing) {
    const auto result = inChild([] {
        if (!becomeOrdinary()) {
            return 2;
        }
        const std::string before = ids();
        errno = 0;
        const bool changed = Daemon::changeUser(true, kUser + 5, kGroup + 5);
        const int error = errno;
        return !changed && error == EPERM && ids() == before ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, OfAnOrdinaryUserToRootFailsWithoutTheGroupsToo) {
    const auto result = inChild([] {
        if (!becomeOrdinary()) {
            return 2;
        }
        errno = 0;
        const bool changed = Daemon::changeUser(false, 0, 0);
        return !changed && errno == EPERM ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, OfAnOrdinaryUserToItselfHoldsWithoutTheGroups) {
    const auto result = inChild([] {
        if (!becomeOrdinary()) {
            return 2;
        }
        return Daemon::changeUser(false, ::getuid(), ::getgid()) ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

// setresuid(2) takes the highest number for "leave it": the call succeeds, root stays root
TEST(DaemonChangeUser, RefusesTheUserIdThatMeansNoChange) {
    const auto result = inChild([] {
        errno = 0;
        return !Daemon::changeUser(true, 4'294'967'295U, kGroup) && errno == EINVAL ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, RefusesTheGroupIdThatMeansNoChange) {
    const auto result = inChild([] {
        errno = 0;
        const bool changed = Daemon::changeUser(true, kUser, 4'294'967'295U);
        return !changed && errno == EINVAL ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, RefusesTheGroupIdThatMeansNoChangeWithoutTheGroups) {
    const auto result = inChild([] {
        errno = 0;
        const bool changed = Daemon::changeUser(false, ::getuid(), 4'294'967'295U);
        return !changed && errno == EINVAL ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, ReplacesTheGroupsOfRootEvenWhenTheIdsStay) {
    const auto result = inChild([] {
        const std::vector<gid_t> many = {0, 4, 24, 27, 64'300};
        const bool root = isRoot() && ::setgroups(many.size(), many.data()) == 0;
        const bool changed = Daemon::changeUser(true, ::getuid(), ::getgid());
        if (!root) {
            return changed ? 1 : 0;
        }
        std::array<gid_t, 8> groups{};
        const int count = ::getgroups(static_cast<int>(groups.size()), groups.data());
        return changed && count == 1 && groups[0] == ::getgid() ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(DaemonChangeUser, TakesTheSavedIdsAwayToo) {
    const auto result = inChild([] {
        // with a saved root id the process could come back
        if (isRoot() && ::setresuid(0, 0, 0) != 0) {
            return 2;
        }
        const bool changed = Daemon::changeUser(true, kUser, kGroup);
        const bool back = ::seteuid(0) == 0 || ::setegid(0) == 0;
        return isRoot() || back ? 1 : (changed ? 3 : 0);
    });
    // 3: root changed for good; 0: an ordinary user could not change and is none the better for it
    EXPECT_EQ(outcome(result), isRoot() ? 3 : 0);
}

// capabilities(7): with this bit the change of user leaves the capabilities, and with them root
TEST(DaemonChangeUser, FailsWhenTheWayBackToRootStaysOpen) {
    const auto result = inChild([] {
        if (isRoot() && ::prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP) != 0) {
            return 2;
        }
        errno = 0;
        return !Daemon::changeUser(true, kUser, kGroup) && errno == EPERM ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

}  // namespace
