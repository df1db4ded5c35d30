// Namespace files in a /run/kiv that only the test's child sees. Root uses a new mount namespace,
// other users a user namespace if the kernel allows one.
#include "libkiv/container_namespaces.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>

#include "../fs/narrowed_process.h"
#include "../util/child_process.h"
#include "../util/failure_of.h"

namespace {

const std::string kFiles = "/run/kiv/alice@";

void write(const std::string& path, const std::string& content) {
    std::ofstream(path) << content;
}

bool becomeRootOfAUserNamespace() {
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    if (::unshare(CLONE_NEWUSER) != 0) {
        return false;
    }
    write("/proc/self/setgroups", "deny");
    write("/proc/self/uid_map", "0 " + user + " 1");
    write("/proc/self/gid_map", "0 " + group + " 1");
    return ::geteuid() == 0;
}

/// A mount namespace can be bind-mounted only inside an older one. Newer kernels compare numbers
/// that each processor takes from its own batch.
bool stayOnOneProcessor() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<unsigned>(::sched_getcpu()), &processors);
    return ::sched_setaffinity(0, sizeof processors, &processors) == 0;
}

bool ownRuntimeDirectory() {
    return stayOnOneProcessor() && (::geteuid() == 0 || becomeRootOfAUserNamespace()) &&
           ::unshare(CLONE_NEWNS) == 0 &&
           ::mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("test", "/run", "tmpfs", 0, nullptr) == 0 && ::mkdir("/run/kiv", 0700) == 0;
}

class ContainerNamespaces : public testing::Test {
protected:
    void SetUp() override {
        if (outcome(inChild([] { return ownRuntimeDirectory() ? 0 : 1; })) != 0) {
            GTEST_SKIP() << "this kernel gives no user namespace to who is not root";
        }
    }

    /// The error of entering alice's namespaces after `prepare` has changed the directory. The text
    /// also says if something was joined all the same.
    static std::string failureAfter(const std::function<void()>& prepare) {
        return inChild([&prepare] {
                   require(ownRuntimeDirectory());
                   prepare();
                   const std::string before = own("net") + own("ipc") + own("mnt");
                   std::cout << failureOf([] { enterNamespaces("alice"); });
                   if (own("net") + own("ipc") + own("mnt") != before) {
                       std::cout << " (something was joined)";
                   }
                   return 0;
               })
            .output;
    }

    static std::string own(const std::string& kind) {
        return std::filesystem::read_symlink("/proc/self/ns/" + kind);
    }

    static std::string notRunning(const std::string& kind) {
        return kFiles + kind + ": container is not running, start it with: kivctl start alice";
    }

    static void bind(const std::string& from, const std::string& to) {
        write(to, "");
        require(::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0);
    }
};

/// A process in new namespaces, while the object exists.
class Container {
public:
    Container() {
        int ready[2];
        require(::pipe(ready) == 0);
        process = ::fork();
        if (process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // also when the test is aborted
            const bool apart = ::unshare(CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWNS) == 0;
            require(apart && ::write(ready[1], "", 1) == 1);
            ::pause();
            ::_exit(0);
        }
        ::close(ready[1]);
        char byte = 1;
        require(::read(ready[0], &byte, 1) == 1);
        ::close(ready[0]);
    }
    Container(const Container&) = delete;
    Container& operator=(const Container&) = delete;
    ~Container() {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }

    std::string file(const std::string& kind) const {
        return "/proc/" + std::to_string(process) + "/ns/" + kind;
    }

private:
    pid_t process = 0;
};

TEST(ContainerName, IsNotAPath) {
    for (const std::string name : {"", "/", "../alice", "alice/x", "alice@net", "@"}) {
        EXPECT_EQ(failureOf([&name] { enterNamespaces(name); }), "'" + name + "' is no user name");
    }
}

TEST_F(ContainerNamespaces, DoNotExistWithoutARuntimeDirectory) {
    EXPECT_EQ(failureAfter([] { ::rmdir("/run/kiv"); }), notRunning("net"));
}

TEST_F(ContainerNamespaces, DoNotExistWithoutFiles) {
    EXPECT_EQ(failureAfter([] {}), notRunning("net"));
}

TEST_F(ContainerNamespaces, DoNotExistWhenAFileIsAPlainFile) {
    EXPECT_EQ(failureAfter([] { write(kFiles + "net", ""); }), notRunning("net"));
}

TEST_F(ContainerNamespaces, AreNotJoinedInPart) {
    EXPECT_EQ(failureAfter([] {
                  const Container container;
                  bind(container.file("net"), kFiles + "net");
                  write(kFiles + "ipc", "");
                  bind(container.file("mnt"), kFiles + "mnt");
              }),
              notRunning("ipc"));
    EXPECT_EQ(failureAfter([] {
                  const Container container;
                  bind(container.file("net"), kFiles + "net");
                  bind(container.file("ipc"), kFiles + "ipc");
              }),
              notRunning("mnt"));
}

TEST_F(ContainerNamespaces, AreNotJoinedWhileMarkedUnfinished) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root may set such an attribute";
    }
    EXPECT_EQ(failureAfter([] {
                  const Container container;
                  for (const char* kind : {"net", "ipc", "mnt"}) {
                      bind(container.file(kind), kFiles + kind);
                  }
                  require(::setxattr("/run/kiv", "trusted.kiv.unfinished.alice", "", 0, 0) == 0);
              }),
              "/run/kiv: starting the container of alice was interrupted, start it with: "
              "kivctl start alice");
}

TEST_F(ContainerNamespaces, AreEachOfTheirKind) {
    EXPECT_EQ(failureAfter([] {
                  const Container container;
                  bind(container.file("net"), kFiles + "net");
                  bind(container.file("net"), kFiles + "ipc");
                  bind(container.file("mnt"), kFiles + "mnt");
              }),
              kFiles + "ipc: is a namespace of another kind");
}

TEST_F(ContainerNamespaces, AreNotFoundThroughLinks) {
    EXPECT_EQ(failureAfter(
                  [] { require(::symlink("/proc/self/ns/net", (kFiles + "net").c_str()) == 0); }),
              kFiles + "net: Too many levels of symbolic links");
}

TEST_F(ContainerNamespaces, AreNotWaitedForAtAFifo) {
    EXPECT_EQ(failureAfter([] { require(::mkfifo((kFiles + "net").c_str(), 0600) == 0); }),
              notRunning("net"));
}

TEST_F(ContainerNamespaces, AreAllJoinedAtTheContainersRoot) {
    const auto result = inChild([] {
        require(ownRuntimeDirectory());
        const Container container;
        std::string wanted;
        for (const char* kind : {"net", "ipc", "mnt"}) {
            bind(container.file(kind), kFiles + kind);
            wanted += std::filesystem::read_symlink(container.file(kind)).string() + " ";
        }
        require(::chdir("/tmp") == 0);
        std::cout << failureOf([] { enterNamespaces("alice"); });
        const std::string joined = own("net") + " " + own("ipc") + " " + own("mnt") + " ";
        std::cout << (joined == wanted ? "joined" : joined + "instead of " + wanted) << " at "
                  << std::filesystem::current_path().string();
        return 0;
    });
    EXPECT_EQ(result.output, "joined at /");
}

TEST_F(ContainerNamespaces, LeaveNoDescriptorBehind) {
    const auto result = inChild([] {
        require(ownRuntimeDirectory());
        const Container container;
        for (const char* kind : {"net", "ipc", "mnt"}) {
            bind(container.file(kind), kFiles + kind);
        }
        const int before = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::close(before);
        enterNamespaces("alice");
        return ::open("/dev/null", O_RDONLY | O_CLOEXEC) == before ? 0 : 1;
    });
    EXPECT_EQ(outcome(result), 0);
}

}  // namespace
