// The child that owns new namespaces. Errors of the kernel that do not occur in a plain run are
// injected.
#include "container/fork_unshare.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"
#include "container/namespaces.h"

namespace {

int statusOf(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Runs forkUnshare in a separate process that `narrow` has restricted. The forked child exits with
/// 42 when it was released. Returns the forked child's exit status.
ChildResult forked(int flags, const std::function<void()>& narrow) {
    return inChild([flags, &narrow] {
        narrow();
        int sync = -1;
        const pid_t child = forkUnshare(flags, sync);
        if (child == 0) {
            ::_exit(42);
        }
        ::close(sync);
        return statusOf(child);
    });
}

/// The text of forkUnshare's failure, and the value that it left in `sync`.
ChildResult failed(const std::function<void()>& narrow) {
    return inChild([&narrow] {
        narrow();
        int sync = 4711;
        try {
            forkUnshare(0, sync);
        } catch (const std::runtime_error& error) {
            std::cout << error.what() << std::flush;
        }
        return sync == -1 ? 0 : 1;
    });
}

std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

void nothing() {}

void denyForks() {
#ifdef SYS_fork
    denySystemCall(SYS_fork, EAGAIN);
#endif
    denySystemCall(SYS_clone, EAGAIN);
    denySystemCall(SYS_clone3, EAGAIN);
}

TEST(ForkedChild, ReportsARefusedUnshareAndEndsWithStatus1) {
    const auto result = forked(CLONE_NEWNS, dropPrivileges);
    EXPECT_EQ(outcome(result), 1);
    EXPECT_EQ(result.errorOutput, "unshare() failed: Operation not permitted\n");
}

TEST(ForkedChild, ReportsFlagsThatTheKernelDoesNotKnow) {
    const auto result = forked(CLONE_NEWNS | 1, nothing);
    EXPECT_EQ(outcome(result), 1);
    EXPECT_EQ(result.errorOutput, "unshare() failed: Invalid argument\n");
}

TEST(ForkedChild, ReportsAMountNamespaceThatStayedTheSame) {
    const auto result = forked(CLONE_NEWNS, [] { denySystemCall(SYS_unshare, 0); });
    EXPECT_EQ(outcome(result), 1);
    EXPECT_EQ(result.errorOutput, "mount inode hasn't changed!\n");
}

TEST(ForkedChild, DoesNotCheckTheMountsWhenTheyAreNotUnshared) {
    const auto result = forked(CLONE_NEWIPC | CLONE_NEWNET, [] { denySystemCall(SYS_unshare, 0); });
    EXPECT_EQ(outcome(result), 42);
    EXPECT_EQ(result.errorOutput, "");
}

TEST(ForkedChild, ReportsARootDirectoryThatItCannotChangeToAndGoesOn) {
    const auto result = forked(0, [] { denySystemCall(SYS_chdir, EACCES); });
    EXPECT_EQ(outcome(result), 42);
    EXPECT_EQ(result.errorOutput, "chdir(/) failed: Permission denied\n");
}

TEST(ForkedChild, HasUnsharedWhenTheParentContinues) {
    const bool allowed = outcome(inChild([] { return ::unshare(CLONE_NEWIPC) == 0 ? 0 : 1; })) == 0;
    const auto result = inChild([] {
        int sync = -1;
        const pid_t child = forkUnshare(CLONE_NEWIPC, sync);
        if (child == 0) {
            ::_exit(0);
        }
        bool own = false;
        try {
            own = getNamespaceInode(child, "ipc") != getNamespaceInode(::getpid(), "ipc");
        } catch (const std::runtime_error&) {
            own = false;  // it has already died
        }
        ::close(sync);
        statusOf(child);
        return own ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), allowed ? 0 : 1);
    EXPECT_EQ(result.errorOutput, allowed ? "" : "unshare() failed: Operation not permitted\n");
}

TEST(ForkedChild, SaysWhyItCannotStartWithOtherMounts) {
    const auto result = inChild([] {
        int sync = -1;
        const FileDescriptor none;
        const pid_t child = forkUnshare(0, sync, &none);
        if (child == 0) {
            ::_exit(42);
        }
        ::close(sync);
        return statusOf(child);
    });
    EXPECT_EQ(outcome(result), 1);
    EXPECT_EQ(result.errorOutput, "unshare() failed: Bad file descriptor\n");
}

TEST(ForkedChild, IsAnotherProcessWithTheParentsData) {
    const auto result = inChild([] {
        const pid_t parent = ::getpid();
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            ::_exit(::getppid() == parent && ::getpid() != parent ? 0 : 1);
        }
        ::close(sync);
        return child > 0 ? statusOf(child) : 2;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ForkedChild, EndsWithItsParent) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    const auto result = inChild([&ends] {
        ::close(ends[0]);
        int sync = -1;
        if (forkUnshare(0, sync) == 0) {
            ::pause();  // released by its parent's end, then killed
        }
        ::kill(::getpid(), SIGKILL);
        return 0;
    });
    ::close(ends[1]);
    EXPECT_EQ(outcome(result), -SIGKILL);
    pollfd end{ends[0], POLLIN, 0};
    ASSERT_EQ(::poll(&end, 1, 10'000), 1) << "somebody still has the other end";
    char byte = 0;
    EXPECT_EQ(::read(ends[0], &byte, 1), 0);
    ::close(ends[0]);
}

TEST(ForkedChild, StillWaitsAfterASignal) {
    const auto result = inChild([] {
        struct sigaction action {};
        action.sa_handler = [](int) {};  // interrupts the read, since it does not restart it
        ::sigaction(SIGUSR1, &action, nullptr);
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            ::_exit(42);
        }
        for (int i = 0; i < 5; ++i) {
            ::kill(child, SIGUSR1);
            ::usleep(5'000);
        }
        int status = 0;
        const bool waiting = ::waitpid(child, &status, WNOHANG) == 0;
        ::close(sync);
        return waiting && statusOf(child) == 42 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ForkedChild, HoldsNoDescriptorAfterItsRelease) {
    const auto result = inChild([] {
        const auto before = openDescriptors();
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            ::_exit(openDescriptors() == before ? 0 : 1);
        }
        ::close(sync);
        return statusOf(child);
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ForkedChild, DoesNotRepeatWhatItsParentHadBuffered) {
    const auto result = inChild([] {
        std::cout << "once;";
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        std::cout << (child == 0 ? "child;" : "") << std::flush;
        if (child == 0) {
            ::_exit(0);
        }
        ::close(sync);
        return statusOf(child);
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "once;child;");
}

TEST(ForkingParent, HoldsOneDescriptorThatIsClosedOnExec) {
    const auto result = inChild([] {
        const auto before = openDescriptors();
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            ::_exit(0);
        }
        const bool one = openDescriptors() == before + 1;
        const bool closedOnExec = (::fcntl(sync, F_GETFD) & FD_CLOEXEC) != 0;
        ::close(sync);
        statusOf(child);
        return one && closedOnExec ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ForkingParent, ReportsAFailedFork) {
    const auto result = failed(denyForks);
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "fork() failed: Resource temporarily unavailable");
}

TEST(ForkingParent, KeepsNoDescriptorOfAFailedFork) {
    const auto result = inChild([] {
        const auto before = openDescriptors();
        denyForks();
        int sync = -1;
        try {
            forkUnshare(0, sync);
        } catch (const std::runtime_error&) {
            return openDescriptors() == before ? 0 : 1;
        }
        return 2;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ForkingParent, ReportsThatThereIsNoPipe) {
    const auto result = failed([] { leaveDescriptors(0); });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "pipe() failed: Too many open files");
}

TEST(ForkingParent, ReportsThatThereIsNoSecondPipe) {
    const auto result = failed([] { leaveDescriptors(2); });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.output, "pipe() failed: Too many open files");
}

TEST(ForkUnshare, HoldsTheChildUntilItIsReleased) {
    const auto result = inChild([] {
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            ::_exit(42);
        }
        int status = 0;
        ::usleep(50'000);
        const bool waiting = ::waitpid(child, &status, WNOHANG) == 0;
        ::close(sync);
        ::waitpid(child, &status, 0);
        return waiting && WIFEXITED(status) && WEXITSTATUS(status) == 42 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
    EXPECT_EQ(result.errorOutput, "");
}

TEST(ForkUnshare, ReleasesTheChildAlsoByAByte) {
    const auto result = inChild([] {
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            ::_exit(42);
        }
        int status = 0;
        const bool written = ::write(sync, "x", 1) == 1;
        ::waitpid(child, &status, 0);
        return written && WEXITSTATUS(status) == 42 ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

TEST(ForkUnshare, ReturnsWhenTheChildCannotUnshare) {
    const auto result = inChild([] {
        int sync = -1;
        // a flag that unshare(2) refuses for every user
        const pid_t child = forkUnshare(CLONE_SETTLS, sync);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    });
    EXPECT_EQ(outcome(result), 1);
    EXPECT_EQ(result.errorOutput, "unshare() failed: Invalid argument\n");
}

TEST(ForkUnshare, PutsTheChildAtTheRootDirectory) {
    const auto result = inChild([] {
        int sync = -1;
        const pid_t child = forkUnshare(0, sync);
        if (child == 0) {
            char directory[64] = "";
            ::_exit(::getcwd(directory, sizeof directory) != nullptr && directory[1] == '\0' ? 0
                                                                                             : 1);
        }
        ::close(sync);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    });
    EXPECT_EQ(outcome(result), 0);
}

}  // namespace
