// Uses users that every Debian has.
#include "pam/registered_account.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "../fs/temporary_directory.h"

namespace {

using namespace std::string_literals;
using testing::EndsWith;
using testing::ThrowsMessage;

class RegisteredAccount : public testing::Test {
protected:
    std::optional<std::string> find(const std::string& name, uid_t uid,
                                    const std::string& content) {
        return registeredAccount({name, uid, 0, "", ""}, directory.write("/kiv.users", content));
    }

    TemporaryDirectory directory;
};

TEST_F(RegisteredAccount, HasTheUsersName) {
    EXPECT_EQ(find("daemon", 1, "bin\ndaemon net=100.64.0.4/30\n"), "daemon");
}

TEST_F(RegisteredAccount, MayBeAnotherNameWithTheUsersId) {
    EXPECT_EQ(find("second", 1, "bin\ndaemon\n"), "daemon");
}

TEST_F(RegisteredAccount, DoesNotExistForOtherUsers) {
    EXPECT_EQ(find("second", 1, "bin\nno-such-user-here\n"), std::nullopt);
    EXPECT_EQ(find("daemon", 1, "# daemon\n"), std::nullopt);
    EXPECT_EQ(find("daemon", 1, ""), std::nullopt);
}

TEST_F(RegisteredAccount, IsNotSearchedInADamagedRegistry) {
    for (const std::string& content :
         {"bin\ndaemon\0\n"s, "bin net=100.64.0.4/30\0daemon\n"s, "#\0daemon\nbin\n"s}) {
        EXPECT_THAT([&] { find("bin", 2, content); },
                    ThrowsMessage<std::runtime_error>(EndsWith(": holds a NUL byte")));
    }
}

TEST_F(RegisteredAccount, IsNotSearchedInARegistryThatCannotBeRead) {
    EXPECT_THAT(
        [&] {
            registeredAccount({"bin", 2, 0, "", ""}, directory.at(""));
        },
        ThrowsMessage<std::runtime_error>(EndsWith(": Is a directory")));
    EXPECT_THROW(registeredAccount({"bin", 2, 0, "", ""}, directory.at("/missing")),
                 std::runtime_error);
}

}  // namespace
