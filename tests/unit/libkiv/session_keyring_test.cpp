#include "libkiv/session_keyring.h"

#include <gtest/gtest.h>
#include <linux/keyctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"
#include "../util/failure_of.h"

namespace {

/// The errno of a search for the key in the session's keyring, or 0.
int searchForKey() {
    const long key =
        ::syscall(SYS_keyctl, KEYCTL_SEARCH, KEY_SPEC_SESSION_KEYRING, "user", "kiv:test", 0);
    return key == -1 ? errno : 0;
}

void takeSessionWithKey() {
    dropPrivileges();
    require(::syscall(SYS_keyctl, KEYCTL_JOIN_SESSION_KEYRING, nullptr) != -1);
    require(::syscall(SYS_add_key, "user", "kiv:test", "text", 4, KEY_SPEC_SESSION_KEYRING) != -1);
    require(searchForKey() == 0);
}

TEST(SessionKeyring, IsLeftWithItsKeys) {
    const auto result = inChild([] {
        takeSessionWithKey();
        leaveSessionKeyring();
        return searchForKey();
    });
    EXPECT_EQ(outcome(result), ENOKEY);
}

TEST(SessionKeyring, NeedsNothingOnAKernelWithoutKeyrings) {
    const auto result = inChild([] {
        denySystemCall(SYS_keyctl, ENOSYS);
        std::cout << failureOf(leaveSessionKeyring);
        return 0;
    });
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(outcome(result), 0);
}

TEST(SessionKeyring, ThatCannotBeLeftIsAFailure) {
    for (const int error : {EPERM, EDQUOT, ENOMEM}) {
        const auto result = inChild([error] {
            denySystemCall(SYS_keyctl, static_cast<unsigned>(error));
            std::cout << failureOf(leaveSessionKeyring);
            return 0;
        });
        EXPECT_TRUE(result.output.starts_with("cannot leave the caller's session keyring: "))
            << error << ": " << result.output;
    }
}

}  // namespace
