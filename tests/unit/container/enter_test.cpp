// The parts of entering that need no container; the end-to-end tests check the rest.
#include "container/enter.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

namespace {

class LibraryLogCallback : public testing::Test {
protected:
    ContainerHandle handle{"daemon"};  // an account that every host has
};

TEST_F(LibraryLogCallback, ExpandsItsArgumentsIntoTheHandlesError) {
    libraryLogCallback(&handle, 3, "%s: %d of %lu %c%s %.1f", "file", -7, 12UL, 'x', "y", 0.5);
    EXPECT_EQ(handle.error, "file: -7 of 12 xy 0.5");
}

// the measured length and the text come from the same arguments, however many there are
TEST_F(LibraryLogCallback, ReadsArgumentsOnTheStackOnceForEachPass) {
    libraryLogCallback(&handle, 0, "%d %d %d %d %d %d %d %d %d %s", 1, 2, 3, 4, 5, 6, 7, 8, 9,
                       "end");
    EXPECT_EQ(handle.error, "1 2 3 4 5 6 7 8 9 end");
}

TEST_F(LibraryLogCallback, TakesAPercentSignInAnArgumentLiterally) {
    libraryLogCallback(&handle, 3, "%s", "100% of %s and %n");
    EXPECT_EQ(handle.error, "100% of %s and %n");
}

TEST_F(LibraryLogCallback, KeepsTextsOfAnyLength) {
    const std::string text(100 << 10, 'x');
    libraryLogCallback(&handle, 3, "<%s>", text.c_str());
    EXPECT_EQ(handle.error, "<" + text + ">");
}

TEST_F(LibraryLogCallback, KeepsTheLastMessage) {
    libraryLogCallback(&handle, 3, "the %s, which is longer", "first");
    libraryLogCallback(&handle, 7, "the second");
    libraryLogCallback(&handle, 3, "third");
    EXPECT_EQ(handle.error, "third");
}

TEST_F(LibraryLogCallback, AcceptsAnEmptyMessage) {
    handle.error = "earlier";
    libraryLogCallback(&handle, 3, "%s", "");
    EXPECT_EQ(handle.error, "");
}

TEST_F(LibraryLogCallback, IgnoresThePriority) {
    libraryLogCallback(&handle, -1, "a");
    EXPECT_EQ(handle.error, "a");
    libraryLogCallback(&handle, 1'000'000, "b");
    EXPECT_EQ(handle.error, "b");
}

TEST_F(LibraryLogCallback, ChangesNoOtherFieldOfTheHandle) {
    const auto uid = handle.uid;
    libraryLogCallback(&handle, 3, "x");
    EXPECT_EQ(handle.userName, "daemon");
    EXPECT_EQ(handle.shortName, "");
    EXPECT_EQ(handle.uid, uid);
}

TEST_F(LibraryLogCallback, KeepsTheEarlierTextWhenTheNewOneCannotBeExpanded) {
    handle.error = "earlier";
    constexpr wint_t kNoCharacter = 0x7fffffff;
    libraryLogCallback(&handle, 3, "new %lc", kNoCharacter);
    EXPECT_EQ(handle.error, "earlier");
}

}  // namespace
