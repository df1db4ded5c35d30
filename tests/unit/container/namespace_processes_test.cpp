#include "container/namespace_processes.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "../fs/temporary_directory.h"

namespace {

using testing::Test;

/// A directory like /proc. Its links lead to plain files in place of namespaces.
class ProcessTree : public Test {
protected:
    /// Puts the process with that name (or a thread, such as "8/task/8") into the namespace.
    void put(const std::string& process, const std::string& kind, const std::string& space) {
        const std::string target = directory.write("/spaces/" + space, "");
        const std::string links = directory.at("/proc/" + process + "/ns");
        std::filesystem::create_directories(links);
        std::filesystem::create_symlink(target, links + "/" + kind);
    }

    NamespaceEntry entry(const std::string& kind, const std::string& space) {
        struct stat status {};
        ::stat(directory.write("/spaces/" + space, "").c_str(), &status);
        return {"/run/kiv/alice@" + kind, kind, status.st_ino, {}, {}};
    }

    void find(std::list<NamespaceEntry>& entries) {
        std::filesystem::create_directories(directory.at("/proc"));
        findNamespaceProcesses(entries, directory.at("/proc"));
    }

    std::vector<pid_t> residents(const std::string& kind, const std::string& space) {
        std::list<NamespaceEntry> entries{entry(kind, space)};
        find(entries);
        std::sort(entries.front().pids.begin(), entries.front().pids.end());
        return entries.front().pids;
    }

    TemporaryDirectory directory;
};

using Pids = std::vector<pid_t>;

TEST_F(ProcessTree, ProcessesAreFoundOnlyInTheirNamespace) {
    put("20", "net", "alice");
    put("30", "net", "bob");
    put("4000000", "net", "alice");
    EXPECT_EQ(residents("net", "alice"), (Pids{20, 4000000}));
    EXPECT_EQ(residents("net", "bob"), (Pids{30}));
    EXPECT_EQ(residents("net", "carol"), (Pids{}));
}

TEST_F(ProcessTree, AProcessInSeveralNamespacesIsInEachEntry) {
    put("20", "net", "alice-net");
    put("20", "ipc", "alice-ipc");
    put("30", "ipc", "alice-ipc");
    std::list<NamespaceEntry> entries{entry("ipc", "alice-ipc"), entry("net", "alice-net")};
    find(entries);
    std::sort(entries.front().pids.begin(), entries.front().pids.end());
    EXPECT_EQ(entries.front().pids, (Pids{20, 30}));
    EXPECT_EQ(entries.back().pids, (Pids{20}));
}

TEST_F(ProcessTree, ANamespaceOfAnotherKindDoesNotMatch) {
    put("20", "ipc", "alice");
    EXPECT_EQ(residents("net", "alice"), (Pids{}));
}

TEST_F(ProcessTree, OnlyNamesThatBeginWithADigitAreProcesses) {
    put("self", "net", "alice");
    put("x20", "net", "alice");
    put("20x", "net", "alice");
    EXPECT_EQ(residents("net", "alice"), (Pids{20}));
}

TEST_F(ProcessTree, TheFirstProcessAndTheSearchersOwnAreLeftOut) {
    put("1", "net", "alice");
    put(std::to_string(::getpid()), "net", "alice");
    put("10", "net", "alice");
    EXPECT_EQ(residents("net", "alice"), (Pids{10}));
}

TEST_F(ProcessTree, AnEntryWithoutANamespaceMatchesNothing) {
    put("20", "net", "alice");
    directory.makeDirectory("/proc/30/task/30");  // a zombie
    std::list<NamespaceEntry> entries{{"/run/kiv/alice@net", "net", 0, {}, {}}};
    find(entries);
    EXPECT_EQ(entries.front().pids, (Pids{}));
}

TEST_F(ProcessTree, AProcessWithoutItsFirstThreadIsFoundByTheOthers) {
    directory.makeDirectory("/proc/20/task/20/ns");
    put("20/task/21", "net", "bob");
    put("20/task/22", "net", "alice");
    EXPECT_EQ(residents("net", "alice"), (Pids{20}));
    EXPECT_EQ(residents("net", "bob"), (Pids{20}));
    EXPECT_EQ(residents("net", "carol"), (Pids{}));
}

TEST_F(ProcessTree, OnlyTheFirstThreadCountsWhileItLives) {
    put("20", "net", "host");
    put("20/task/21", "net", "alice");
    EXPECT_EQ(residents("net", "alice"), (Pids{}));
}

TEST_F(ProcessTree, APlaceIsTheNetworkAndTheMountsOfAProcessOrOfItsThreads) {
    put("7", "net", "net-a");
    put("7", "mnt", "mnt-a");
    put("8/task/8", "ipc", "ipc-a");  // its first thread has ended
    put("8/task/9", "net", "net-a");
    put("8/task/9", "mnt", "mnt-b");
    std::filesystem::create_directories(directory.at("/proc/9/task"));  // ended
    auto places = listProcessPlaces(directory.at("/proc"));
    std::sort(places.begin(), places.end(),
              [](const ProcessPlace& a, const ProcessPlace& b) { return a.pid < b.pid; });
    ASSERT_EQ(places.size(), 2U);
    EXPECT_EQ(places[0].pid, 7);
    EXPECT_EQ(places[0].network, entry("net", "net-a").inode);
    EXPECT_EQ(places[0].mounts, entry("mnt", "mnt-a").inode);
    EXPECT_EQ(places[1].pid, 8);
    EXPECT_EQ(places[1].network, places[0].network);
    EXPECT_EQ(places[1].mounts, entry("mnt", "mnt-b").inode);
}

TEST_F(ProcessTree, PidsThatAreAlreadyListedAreKept) {
    put("20", "net", "alice");
    std::list<NamespaceEntry> entries{entry("net", "alice")};
    entries.front().pids = {7};
    find(entries);
    EXPECT_EQ(entries.front().pids, (Pids{7, 20}));
}

TEST_F(ProcessTree, ADirectoryThatCannotBeOpenedIsAnErrorEvenWithNoEntries) {
    std::list<NamespaceEntry> entries;
    const std::string path = directory.at("/absent");
    try {
        findNamespaceProcesses(entries, path);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "Cannot open " + path + ": No such file or directory");
    }
}

/// A child that sleeps until a signal ends it.
class Sleeper : public Test {
protected:
    void SetUp() override {
        child = ::fork();
        if (child == 0) {
            ::pause();
            ::_exit(0);
        }
    }

    /// The signal that ended the child. Sends SIGKILL when the child is still alive.
    int endedBy() {
        int status = 0;
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        return WTERMSIG(status);
    }

    pid_t child = 0;
};

NamespaceEntry own(const std::string& kind) {
    return {"", kind, getNamespaceInode(::getpid(), kind), {}, {}};
}

TEST_F(Sleeper, IsEndedWhenItLivesInOneOfTheNamespaces) {
    terminateProcess(child, {{"", "ipc", 1, {}, {}}, own("net")});
    ::usleep(20'000);
    EXPECT_EQ(endedBy(), SIGTERM);
}

TEST_F(Sleeper, IsNotSignalledWhenItLivesInNoneOfTheNamespaces) {
    terminateProcess(child, {{"", "net", 1, {}, {}}, {"", "ipc", 0, {}, {}}});
    ::usleep(20'000);
    EXPECT_EQ(endedBy(), SIGKILL);
}

}  // namespace
