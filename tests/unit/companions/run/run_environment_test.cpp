#include "companions/run/run_environment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "../../fs/temporary_directory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// login.defs(5) with that text.
std::string pathIn(const std::string& text) {
    const TemporaryDirectory directory;
    return loginPath(directory.write("/login.defs", text));
}

TEST(LoginPath, IsTheValueOfEnvPathWithOrWithoutItsPrefix) {
    EXPECT_EQ(pathIn("ENV_PATH\tPATH=/usr/bin:/bin\n"), "/usr/bin:/bin");
    EXPECT_EQ(pathIn("ENV_PATH /usr/bin"), "/usr/bin");
    EXPECT_EQ(pathIn("  ENV_PATH   \"PATH=/opt/a b\"  \n"), "/opt/a b");
}

TEST(LoginPath, IgnoresCommentsAndOtherItems) {
    EXPECT_EQ(pathIn("#ENV_PATH /no\nENV_SUPATH PATH=/sbin\nENV_PATHS /no\nENV_PATH /bin\n"),
              "/bin");
}

TEST(LoginPath, IsTheLastOfSeveral) {
    EXPECT_EQ(pathIn("ENV_PATH /first\nENV_PATH /second\n"), "/second");
}

TEST(LoginPath, HasADefault) {
    EXPECT_EQ(pathIn(""), "/bin:/usr/bin");
    EXPECT_EQ(pathIn("ENV_PATH\n"), "/bin:/usr/bin");
    EXPECT_EQ(loginPath("/nowhere/login.defs"), "/bin:/usr/bin");
}

TEST(LoginPath, ThatCannotBeReadIsNotTheDefault) {
    try {
        loginPath("/");
        FAIL() << "read";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("cannot read /: Is a directory"));
    }
}

TEST(Environment, HasEachNameOnceWithItsLastValue) {
    Environment environment = {"A=1", "AB=2"};
    setVariable(environment, "A=3=4");
    setVariable(environment, "C=");
    EXPECT_THAT(environment, ElementsAre("AB=2", "A=3=4", "C="));
    EXPECT_EQ(valueOf(environment, "A"), "3=4");
    EXPECT_EQ(valueOf(environment, "B"), "");
}

}  // namespace
