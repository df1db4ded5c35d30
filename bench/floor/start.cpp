// start ACCOUNTS PATHS TIMES: runs the host tools and mounts of a container's start for each
// account of the first list. Each line of PATHS is "bind PATH" or "cover PATH". Writes three times
// in nanoseconds to TIMES: host tools except iptables, iptables, and the rest. The layer has only
// the account's home; there are no checks, so the mount table is not read.
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <cstdint>
#include <ctime>
#include <fstream>

#include "floor.h"

namespace {

struct Times {
    long long tools;
    long long iptables;
};
Times* times = nullptr;  // shared with the child

struct Paths {
    std::vector<std::string> binds;
    std::vector<std::string> covers;
};

long long now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

void timed(long long Times::*sum, std::initializer_list<std::string> words) {
    const long long begin = now();
    tool(words);
    times->*sum += now() - begin;
}

void ip(std::initializer_list<std::string> words) {
    timed(&Times::tools, words);
}

void iptables(std::initializer_list<std::string> words) {
    timed(&Times::iptables, words);
}

void mountAt(const char* source, const std::string& target, const char* type, unsigned long flags,
             const char* data) {
    must(::mount(source, target.c_str(), type, flags, data) == 0, target.c_str());
}

void mountInside(const Account& account, const Paths& paths) {
    const std::string root = "/mnt/temp-root";
    mountAt("none", "/", nullptr, MS_REC | MS_SLAVE, nullptr);
    if (::umount("/run/kiv") != 0) {
        must(::umount2("/run/kiv", MNT_DETACH) == 0, "umount2");
    }
    mountAt(nullptr, "/mnt", "tmpfs", 0, nullptr);
    ::mkdir("/mnt/root", 0755);
    mountAt("/", "/mnt/root", nullptr, MS_BIND, nullptr);
    for (const std::string& path :
         {std::string("/mnt/kiv"), std::string("/mnt/kiv/home"), "/mnt/kiv" + account.home, root,
          std::string("/mnt/empty-dir")}) {
        ::mkdir(path.c_str(), 0755);
    }
    mountAt("overlay", root, "overlay", 0, "lowerdir=/mnt/kiv:/mnt/root");
    mountAt(account.home.c_str(), root + account.home, nullptr, MS_BIND, nullptr);
    mountAt((account.home + "/tmp").c_str(), root + "/tmp", nullptr, MS_BIND, nullptr);
    mountAt(nullptr, root + "/dev/pts", "devpts", 0, "newinstance,max=64");
    mountAt(nullptr, root + "/proc", "proc", MS_RDONLY, "hidepid=2");
    for (const std::string& path : paths.covers) {
        mountAt("/mnt/empty-dir", root + path, nullptr, MS_BIND, nullptr);
    }
    mountAt(nullptr, root + "/run", "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_RELATIME,
            "size=1m,mode=755");
    ::mkdir((root + "/run/mysqld").c_str(), 0755);
    ::close(::open((root + "/run/utmp").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0664));
    for (const std::string& path : paths.binds) {
        mountAt(path.c_str(), root + path, nullptr, MS_BIND, nullptr);
    }
    const int oldRoot = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    must(::chdir(root.c_str()) == 0 && ::syscall(SYS_pivot_root, ".", ".") == 0 &&
             ::fchdir(oldRoot) == 0,
         "pivot");
    mountAt(nullptr, ".", nullptr, MS_SLAVE | MS_REC, nullptr);
    must(::umount2(".", MNT_DETACH) == 0 && ::chdir("/") == 0, "detach");
}

void setUpInside(const Account& account, const std::string& peer, const Paths& paths) {
    const std::string uid = std::to_string(account.uid);
    ip({"ip", "link", "set", "dev", peer, "name", "veth0"});
    ip({"ip", "addr", "add", account.containerEnd + "/30", "dev", "veth0"});
    ip({"ip", "link", "set", "veth0", "up"});
    ip({"ip", "link", "set", "lo", "up"});
    ip({"ip", "route", "add", "default", "via", account.hostEnd});
    ip({"sysctl", "-q", "-w", "net.ipv4.conf.veth0.route_localnet=1"});
    ip({"sysctl", "-q", "-w", "net.ipv4.ping_group_range=" + uid + " " + uid});
    iptables({"iptables", "-t", "nat", "-A", "POSTROUTING", "-s", "127.0.0.1", "-d",
              account.hostEnd, "-o", "veth0", "-j", "MASQUERADE"});
    iptables({"iptables", "-t", "nat", "-A", "OUTPUT", "-s", "127.0.0.1", "-p", "tcp", "-d",
              "127.0.0.1", "--dport", "3306", "-j", "DNAT", "--to", account.hostEnd + ":3306"});
    mountInside(account, paths);
}

void setUpHostSide(const Account& account, const std::string& host, const std::string& peer,
                   pid_t child) {
    ip({"ip", "link", "add", host, "type", "veth", "peer", "name", peer, "mtu", "1400"});
    ip({"ip", "link", "set", peer, "netns", std::to_string(child)});
    ip({"sysctl", "-q", "-w", "net.ipv4.conf." + host + ".route_localnet=1"});
    iptables({"iptables", "-t", "nat", "-I", "PREROUTING", "-i", host, "-p", "tcp", "-d",
              account.hostEnd, "--dport", "3306", "-j", "DNAT", "--to-destination",
              "127.0.0.1:3306"});
    iptables({"iptables", "-A", "INPUT", "-i", host, "-d", "100.64.0.0/10", "-j", "REJECT"});
    ip({"ip", "addr", "add", account.hostEnd + "/30", "dev", host});
    ip({"ip", "link", "set", host, "up", "mtu", "1400"});
}

/// The sequence number of this process's mount namespace; 0 when the kernel does not report it.
std::uint64_t ownNumber() {
    const int file = ::open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
    std::uint64_t number = 0;
    ::ioctl(file, _IOR(0xb7, 0x5, std::uint64_t), &number);  // NS_GET_MNTNS_ID of ioctl_ns(2)
    ::close(file);
    return number;
}

/// Each processor has its own numbers, and a namespace with a lower number than the host's cannot
/// be pinned there: with several starts at once another processor may have to create it.
void unshareMountsAfter(std::uint64_t earlier) {
    cpu_set_t all;
    ::sched_getaffinity(0, sizeof(all), &all);
    for (int processor = 0; ownNumber() < earlier && processor < CPU_SETSIZE; ++processor) {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        if (::sched_setaffinity(0, sizeof(one), &one) == 0) {
            ::unshare(CLONE_NEWNS);
        }
    }
    ::sched_setaffinity(0, sizeof(all), &all);
}

void start(const Account& account, const Paths& paths) {
    const std::string files = "/run/kiv/" + account.name + "@";
    const std::string host = "veth-" + account.name;
    const std::string peer = "vpeer-" + account.name;
    int release[2];
    int ready[2];
    char byte = 0;
    for (const char* kind : {"net", "ipc", "mnt"}) {
        ::close(::open((files + kind).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    must(::pipe2(release, O_CLOEXEC) == 0 && ::pipe2(ready, O_CLOEXEC) == 0, "pipe2");
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(release[1]);
        const std::uint64_t hosts = ownNumber();
        must(::unshare(CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWNS) == 0, "unshare");
        if (ownNumber() < hosts) {
            unshareMountsAfter(hosts);
        }
        ::close(ready[0]);
        ::close(ready[1]);
        must(::read(release[0], &byte, 1) == 0, "read");
        setUpInside(account, peer, paths);
        std::exit(0);  // own_time.cpp writes at exit(3)
    }
    ::close(release[0]);
    ::close(ready[1]);
    must(::read(ready[0], &byte, 1) == 0, "read");
    ::close(ready[0]);
    setUpHostSide(account, host, peer, child);
    for (const char* kind : {"net", "ipc", "mnt"}) {
        const std::string source = "/proc/" + std::to_string(child) + "/ns/" + kind;
        mountAt(source.c_str(), files + kind, nullptr, MS_BIND, nullptr);
    }
    ::close(release[1]);
    int status = 0;
    must(::waitpid(child, &status, 0) == child && status == 0, "child");
}

}  // namespace

int main(int /*argc*/, char** argv) {
    ::unsetenv("LD_PRELOAD");  // own_time.cpp measures this program and not its tools
    times = static_cast<Times*>(
        ::mmap(nullptr, sizeof(Times), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    Paths paths;
    std::ifstream list(argv[2]);
    for (std::string what, path; list >> what >> path;) {
        (what == "bind" ? paths.binds : paths.covers).push_back(path);
    }
    const long long begin = now();
    for (const Account& account : readList(argv[1])) {
        start(account, paths);
    }
    std::ofstream(argv[3]) << times->tools << " " << times->iptables << " "
                           << now() - begin - times->tools - times->iptables << "\n";
    return 0;
}
