// Tests whether limits are in force. A temporary directory replaces the kernel's hierarchy and
// systemd's folders.
#include "companions/check/limit_checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "../../fs/temporary_directory.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class LimitChecks : public testing::Test {
protected:
    LimitChecks() {
        directory.write("/cgroup.controllers", "cpu memory pids\n");
        for (const char* figure : {"pids.current", "memory.current"}) {
            kernel(figure, "1");
        }
        add("alice", 1000).networkNamespace = 1;
    }

    HostAccount& add(const std::string& name, uid_t uid) {
        HostAccount& account = accounts.all.emplace_back();
        account.name = name;
        account.user = PasswordEntry{name, uid, uid, "/home/" + name, "/bin/sh"};
        account.isRegistered = true;
        return account;
    }

    /// As kivctl-limits.service does.
    void link(uid_t uid) {
        directory.write(
            "/run/systemd/system/user-" + std::to_string(uid) + ".slice.d/40-kivctl.conf", "");
    }

    void kernel(const std::string& file, const std::string& value) {
        directory.write("/" + userSlice(1000) + "/" + file, value + "\n");
    }

    void systemd(const std::string& setting) {
        directory.write("/etc/systemd/system/user-1000.slice.d/limits.conf",
                        "[Slice]\n" + setting + "\n");
    }

    /// The findings without the names of the files.
    std::string found() {
        Findings findings;
        checkLimits(accounts, findings, {directory.path, directory.path});
        std::string texts;
        for (const Finding& finding : findings) {
            texts += (texts.empty() ? "" : "\n") + finding.message;
        }
        return texts;
    }

    HostAccounts accounts;
    TemporaryDirectory directory;
};

TEST_F(LimitChecks, FindNothingWhereNothingIsSet) {
    kernel("pids.max", "max");
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LimitChecks, CompareSettingsWithTheKernelsLimits) {
    systemd("TasksMax=200");
    kernel("pids.max", "max");
    EXPECT_EQ(found(),
              "the limit is not in force for 'alice': pids.max is max, run systemctl "
              "reload-or-restart kivctl-limits and see kiv(7)");
    kernel("pids.max", "199");
    EXPECT_THAT(found(), HasSubstr("pids.max is 199,"));
    kernel("pids.max", "200");
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LimitChecks, UnderstandTheUnitsOfMemoryAndWholePages) {
    systemd("MemoryMax=1G");
    kernel("memory.max", "1073741824");
    EXPECT_THAT(found(), IsEmpty());
    kernel("memory.max", "1073741823");
    EXPECT_THAT(found(), HasSubstr("memory.max is 1073741823,"));
    systemd("MemoryMax=1048577");
    kernel("memory.max", "1048576");
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LimitChecks, IgnorePercentagesAndInfinity) {
    kernel("pids.max", "max");
    for (const char* setting : {"TasksMax=33%", "TasksMax=infinity", "TasksMax=", "TasksMax=10X"}) {
        systemd(setting);
        EXPECT_THAT(found(), IsEmpty()) << setting;
    }
}

TEST_F(LimitChecks, FindAPercentageOfMemoryThatLimitsNothing) {
    systemd("MemoryHigh=25%");
    kernel("memory.high", "max");
    EXPECT_THAT(found(), HasSubstr("memory.high is max,"));
    kernel("memory.high", "4194304");
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LimitChecks, CoverOnlyRunningContainers) {
    systemd("TasksMax=200");
    kernel("pids.max", "max");
    accounts.all.front().networkNamespace = 0;
    EXPECT_THAT(found(), IsEmpty());
    accounts.all.front().mountNamespace = 1;
    EXPECT_THAT(found(), HasSubstr("not in force"));
    accounts.all.front().user.reset();
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LimitChecks, NameControllersThatAreMissing) {
    directory.write("/cgroup.controllers", "cpu pids\n");
    EXPECT_EQ(found(),
              "the controller memory is missing: accounts have no limit of this kind, see "
              "cgroups(7)");
    std::filesystem::remove(directory.at("/cgroup.controllers"));
    EXPECT_EQ(found(), "no cgroup v2 is mounted here: no account can be entered");
}

TEST_F(LimitChecks, NameFiguresThatAreNotCounted) {
    std::filesystem::remove(directory.at("/" + userSlice(1000) + "/pids.current"));
    EXPECT_EQ(found(),
              "'alice' is not counted: no limit of this kind can hold, enable the controller for "
              "user.slice");
}

TEST_F(LimitChecks, FindAccountsThatWereRegisteredAfterTheLimitsWereApplied) {
    add("bob", 1001);
    add("root", 0);
    add("orphan", 1003).isRegistered = false;
    add("unknown", 1004).user.reset();
    EXPECT_THAT(found(), IsEmpty()) << "the service is not used";
    link(1000);
    EXPECT_EQ(found(), "the limits are not in force for 'bob': run systemctl reload kivctl-limits");
    link(1001);
    EXPECT_THAT(found(), IsEmpty());
}

TEST_F(LimitChecks, FailWhereADirectoryOfDropInsCannotBeRead) {
    directory.write("/etc/systemd/system/user-1000.slice.d", "a file");
    EXPECT_THROW(found(), std::runtime_error);
}

}  // namespace
