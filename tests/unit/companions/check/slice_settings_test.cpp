// Tests which of several drop-ins counts. A temporary directory replaces the host's root.
#include "companions/check/slice_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../../fs/temporary_directory.h"

namespace {

using testing::IsEmpty;

constexpr const char* kOfAll = "user-.slice.d";
constexpr const char* kOwn = "user-1000.slice.d";

class SliceDropInsOfAHost : public testing::Test {
protected:
    void dropIn(const std::string& folder, const std::string& unit, const std::string& name,
                const std::string& content) {
        directory.write("/" + folder + "/" + unit + "/" + name, "[Slice]\n" + content);
    }

    SliceSettings settings() const { return SliceDropIns(directory.path).settingsOf(1000); }

    std::string tasks() const { return settings()["TasksMax"].value; }

    const std::string etc = "etc/systemd/system";
    const std::string run = "run/systemd/system";
    const std::string usr = "usr/lib/systemd/system";
    TemporaryDirectory directory;
};

TEST_F(SliceDropInsOfAHost, AreNoneWithoutFolders) {
    EXPECT_THAT(settings(), IsEmpty());
}

TEST_F(SliceDropInsOfAHost, ReportEachSettingWithItsFileAndLine) {
    dropIn(etc, kOwn, "limits.conf", "# TasksMax=1\n;TasksMax=2\n TasksMax = 50 \nMemoryMax=1G\n");
    const SliceSetting set = settings()["TasksMax"];
    EXPECT_EQ(set.value, "50");
    EXPECT_EQ(set.file, directory.at("/" + etc + "/" + kOwn + "/limits.conf"));
    EXPECT_EQ(set.line, 4U);
    EXPECT_EQ(settings()["MemoryMax"].value, "1G");
    EXPECT_EQ(settings().size(), 2U);
}

TEST_F(SliceDropInsOfAHost, AreReadInTheOrderOfTheirNamesWhateverTheirFolder) {
    dropIn(usr, kOfAll, "90-last.conf", "TasksMax=90\n");
    dropIn(run, kOfAll, "50-middle.conf", "TasksMax=50\n");
    dropIn(etc, kOfAll, "10-first.conf", "TasksMax=10\n");
    EXPECT_EQ(tasks(), "90");
}

TEST_F(SliceDropInsOfAHost, AreReadInTheOrderOfTheirNamesWhetherForOneSliceOrAll) {
    dropIn(etc, kOwn, "10-own.conf", "TasksMax=10\n");
    dropIn(etc, kOfAll, "90-all.conf", "TasksMax=90\n");
    EXPECT_EQ(tasks(), "90");
    dropIn(etc, kOwn, "95-own.conf", "TasksMax=95\n");
    EXPECT_EQ(tasks(), "95");
}

TEST_F(SliceDropInsOfAHost, OfTheSameNameAreThoseOfTheFirstFolder) {
    dropIn(usr, kOwn, "a.conf", "TasksMax=1\n");
    dropIn(run, kOfAll, "a.conf", "TasksMax=2\n");
    EXPECT_EQ(tasks(), "2");
    dropIn(run, kOwn, "a.conf", "TasksMax=3\n");
    EXPECT_EQ(tasks(), "3");
    dropIn(etc, kOfAll, "a.conf", "TasksMax=4\n");
    EXPECT_EQ(tasks(), "4");
    dropIn("run/systemd/system.control", kOwn, "a.conf", "TasksMax=5\n");
    EXPECT_EQ(tasks(), "5");
    dropIn("etc/systemd/system.control", kOwn, "a.conf", "");  // an empty file masks the others
    EXPECT_THAT(settings(), IsEmpty());
}

TEST_F(SliceDropInsOfAHost, AreNotThoseOfOtherSlicesOrFiles) {
    dropIn(etc, "user-1001.slice.d", "a.conf", "TasksMax=1\n");
    dropIn(etc, kOwn, "a.conf.bak", "TasksMax=2\n");
    EXPECT_THAT(settings(), IsEmpty());
}

}  // namespace
