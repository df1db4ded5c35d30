// Which users have namespace files. tests/e2e/kiv_list.bats tests the states themselves, which need
// namespaces.
#include "container/container_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "../fs/temporary_directory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ContainerState, HasAWordForPrograms) {
    EXPECT_STREQ(nameOf(ContainerState::Running), "running");
    EXPECT_STREQ(nameOf(ContainerState::Partial), "partial");
    EXPECT_STREQ(nameOf(ContainerState::Interrupted), "interrupted");
    EXPECT_STREQ(nameOf(ContainerState::Stopped), "stopped");
    EXPECT_STREQ(nameOf(ContainerState::Orphaned), "orphaned");
}

TEST(NamespaceFileUsers, AreThoseOfFilesOfAKind) {
    const TemporaryDirectory directory;
    for (const char* name : {"/bob@mnt", "/bob@net", "/alice@ipc", "/.lock", "/carol", "/dave@pid",
                             "/@net", "/eve@"}) {
        directory.write(name, "");
    }
    EXPECT_THAT(namespaceFileUsers(directory.path), ElementsAre("alice", "bob"));
}

TEST(NamespaceFileUsers, AreNoneWithoutADirectory) {
    const TemporaryDirectory directory;
    EXPECT_THAT(namespaceFileUsers(directory.at("/absent")), IsEmpty());
    EXPECT_THAT(namespaceFileUsers(directory.write("/file", "")), IsEmpty());
}

TEST(NamespaceFileUsers, OfAnUnreadableDirectoryAreAnError) {
    const TemporaryDirectory directory;
    const std::string loop = directory.at("/loop");
    std::filesystem::create_symlink(loop, loop);
    EXPECT_THROW(namespaceFileUsers(loop), std::runtime_error);
}

}  // namespace
