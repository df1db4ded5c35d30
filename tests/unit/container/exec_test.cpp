// What exec does without a container: the end-to-end tests have the rest.
#include "container/exec.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <stdexcept>
#include <string>

namespace {

constexpr int kPriority = 3;

/// An account that every host has.
ContainerHandle anyHandle() {
    return ContainerHandle("daemon");
}

TEST(ExecCommand, RefusesToGoOnWithoutAName) {
    try {
        execCommand(nullptr);
        FAIL() << "returned";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "missing user!");
    }
}

TEST(LibraryLogCallback, ExpandsTheFormatWithAllItsArguments) {
    ContainerHandle handle = anyHandle();
    libraryLogCallback(&handle, kPriority, "%s:%d %c %ld %.2f %5s|%-3u|%x %s%%", "file", -7, 'c',
                       1L << 40, 2.5, "ab", 4U, 255U, "100");
    EXPECT_EQ(handle.error, "file:-7 c 1099511627776 2.50    ab|4  |ff 100%");
}

TEST(LibraryLogCallback, LeavesThePercentSignsOfArgumentsAlone) {
    ContainerHandle handle = anyHandle();
    libraryLogCallback(&handle, kPriority, "%s", "%s%n %d");
    EXPECT_EQ(handle.error, "%s%n %d");
}

TEST(LibraryLogCallback, ReplacesTheEarlierText) {
    ContainerHandle handle = anyHandle();
    libraryLogCallback(&handle, kPriority, "%s", "a long text that came before");
    libraryLogCallback(&handle, kPriority, "short");
    EXPECT_EQ(handle.error, "short");
    libraryLogCallback(&handle, kPriority, "%s", "");
    EXPECT_EQ(handle.error, "");
}

TEST(LibraryLogCallback, TakesTextsOfAnyLength) {
    for (const std::size_t length : {15U, 16U, 255U, 256U, 4096U, 1'000'000U}) {
        ContainerHandle handle = anyHandle();
        const std::string text(length, 'x');
        libraryLogCallback(&handle, kPriority, "%s", text.c_str());
        EXPECT_EQ(handle.error, text);
    }
}

TEST(LibraryLogCallback, KeepsTheEarlierTextWhenTheNewOneCannotBeExpanded) {
    ContainerHandle handle = anyHandle();
    handle.error = "earlier";
    constexpr wint_t kNoCharacter = 0x7fffffff;
    libraryLogCallback(&handle, kPriority, "new %lc", kNoCharacter);
    EXPECT_EQ(handle.error, "earlier");
}

TEST(LibraryLogCallback, WritesNothingButTheErrorOfItsHandle) {
    ContainerHandle handle = anyHandle();
    const ContainerHandle other = anyHandle();
    libraryLogCallback(&handle, kPriority, "text");
    EXPECT_EQ(handle.userName, "daemon");
    EXPECT_EQ(handle.shortName, "");
    EXPECT_EQ(handle.uid, other.uid);
    EXPECT_EQ(other.error, "");
}

}  // namespace
