#include "util/settings.h"

#include <gtest/gtest.h>

namespace {

TEST(Settings, HaveTheBuiltInConfigurationFile) {
    EXPECT_STREQ(Settings().configFile, "/etc/tarnwell/kiv.conf");
}

TEST(Settings, HaveNoProgramNameBeforeTheCommandLineIsParsed) {
    EXPECT_EQ(Settings().programName, nullptr);
}

TEST(Settings, MeanAllAccountsAndNoProgressAtFirst) {
    EXPECT_EQ(Settings().userName, nullptr);
    EXPECT_EQ(Settings().debugMode, 0);
}

TEST(Settings, AreReturnedByTheFourReaders) {
    const Settings kept = settings();
    settings() = {"/tmp/file", "/sbin/program", "alice", 1};
    EXPECT_STREQ(configFile(), "/tmp/file");
    EXPECT_STREQ(programName(), "/sbin/program");
    EXPECT_STREQ(userName(), "alice");
    EXPECT_EQ(debugMode(), 1);
    settings() = kept;
}

}  // namespace
