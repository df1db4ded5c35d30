// stop ACCOUNTS: for each account of the list, scans /proc once, makes the three unmounts and
// unlinks, and deletes the two rules.
#include <dirent.h>
#include <sys/mount.h>

#include <cinttypes>

#include "floor.h"

namespace {

constexpr const char* kKinds[] = {"ipc", "mnt", "net"};

int scan(const ino_t (&wanted)[3]) {
    int found = 0;
    DIR* processes = ::opendir("/proc");
    while (const dirent* entry = ::readdir(processes)) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') {
            continue;
        }
        for (int kind = 0; kind < 3; ++kind) {
            char path[64];
            struct stat status {};
            std::snprintf(path, sizeof(path), "/proc/%.20s/ns/%s", entry->d_name, kKinds[kind]);
            found += ::stat(path, &status) == 0 && status.st_ino == wanted[kind] ? 1 : 0;
        }
    }
    ::closedir(processes);
    return found;
}

void stop(const Account& account) {
    const std::string host = "veth-" + account.name;
    std::string paths[3];
    ino_t inodes[3];
    for (int kind = 0; kind < 3; ++kind) {
        struct stat status {};
        paths[kind] = "/run/kiv/" + account.name + "@" + kKinds[kind];
        must(::stat(paths[kind].c_str(), &status) == 0, "stat");
        inodes[kind] = status.st_ino;
    }
    must(scan(inodes) == 0, "processes");
    for (const std::string& path : paths) {
        must(::umount(path.c_str()) == 0 && ::unlink(path.c_str()) == 0, "umount");
    }
    tool({"iptables", "-D", "INPUT", "-i", host, "-d", "100.64.0.0/10", "-j", "REJECT"});
    tool({"iptables", "-t", "nat", "-D", "PREROUTING", "-i", host, "-p", "tcp", "-d",
          account.hostEnd, "--dport", "3306", "-j", "DNAT", "--to-destination", "127.0.0.1:3306"});
}

}  // namespace

int main(int /*argc*/, char** argv) {
    for (const Account& account : readList(argv[1])) {
        stop(account);
    }
    return 0;
}
