// Times of files and the age of a view. tests/e2e/kiv_list.bats tests the times of namespaces.
#include "container/view_age.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "../fs/temporary_directory.h"

namespace {

using namespace std::chrono_literals;

TEST(ChangedAt, IsTheTimeOfAReplacementByAnOlderFile) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("/kiv.conf", "");
    std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - 24h);
    const auto changed = changedAt(path);
    ASSERT_TRUE(changed);
    EXPECT_LT(std::chrono::system_clock::now() - *changed, 1h);
}

TEST(ChangedAt, IsNothingForAFileThatDoesNotExist) {
    EXPECT_FALSE(changedAt("/no/such/file"));
}

TEST(PinnedAt, IsNothingForAPlainFile) {
    const TemporaryDirectory directory;
    EXPECT_FALSE(pinnedAt(directory.write("/alice@mnt", "")));
}

TEST(HaveChangedSince, IsTrueForALaterChangeOfOneFile) {
    const TemporaryDirectory directory;
    const std::string path = directory.write("/file", "");
    const Instant changed = *changedAt(path);
    EXPECT_TRUE(haveChangedSince(changed - 1ns, {"/no/such/file", path.c_str()}));
    EXPECT_FALSE(haveChangedSince(changed, {"/no/such/file", path.c_str()}));
    EXPECT_FALSE(haveChangedSince(changed, {}));
}

TEST(UtcText, IsInTheFormOfRfc3339) {
    EXPECT_EQ(utcText(Instant(1s + 999ms)), "1970-01-01T00:00:01Z");
    EXPECT_EQ(utcText(Instant(1795299428s)), "2026-11-21T22:17:08Z");
}

}  // namespace
