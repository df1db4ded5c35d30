#include "container/host_preparation.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <stdexcept>
#include <string>
#include <string_view>

#include "config/configuration.h"
#include "container/packet_rules.h"
#include "container/runtime_lock.h"
#include "fs/mount_table.h"
#include "util/errors.h"
#include "util/external_command.h"
#include "util/line_reader.h"
#include "util/runtime_directory.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

constexpr mode_t kRuntimeMode = 0700;
constexpr mode_t kPermissionBits = 07777;
constexpr int kUsualMtu = 1500;
constexpr int kRuleMissing = 1;  // iptables(8) -C

std::runtime_error runtimeDirectoryError(const std::string& what, int error) {
    return systemError(runtimeDirectory + what, error);
}

/// True when the directory was created now.
bool ensureRuntimeDirectory() {
    struct stat status {};
    if (::stat(runtimeDirectory.c_str(), &status) != 0) {
        int error = errno;
        if (error != ENOENT) {
            throw runtimeDirectoryError(": ", error);
        }
        if (::mkdir(runtimeDirectory.c_str(), kRuntimeMode) == 0) {
            return true;
        }
        error = errno;
        if (error != EEXIST) {  // else another start has just made it
            throw runtimeDirectoryError(": mkdir() failed: ", error);
        }
        return false;
    }
    if ((status.st_mode & kPermissionBits) != kRuntimeMode) {
        report("adjusting file mode for " + runtimeDirectory);
        if (::chmod(runtimeDirectory.c_str(), kRuntimeMode) != 0) {
            const int error = errno;
            throw runtimeDirectoryError(": chmod(0700) failed: ", error);
        }
    }
    return false;
}

/// Keeps the namespace mounts from propagating into other mount namespaces, where they would hold a
/// stopped container's namespaces. True when the directory was not private before.
bool privatiseRuntimeDirectory() {
    const char* path = runtimeDirectory.c_str();
    MountTable table;
    readMountTable(table, runtimeDirectory, kMountInfo);
    if (!table.contains(runtimeDirectory)) {
        if (::mount(path, path, nullptr, MS_BIND, nullptr) != 0) {
            const int error = errno;
            throw runtimeDirectoryError(": mount() failed: ", error);
        }
        readMountTable(table, runtimeDirectory, kMountInfo);
    }
    if (table.get(runtimeDirectory).isPrivate()) {
        return false;
    }
    if (::mount(path, path, nullptr, MS_PRIVATE | MS_REC, nullptr) != 0) {
        const int error = errno;
        throw runtimeDirectoryError(": cannot make private: ", error);
    }
    return true;
}

std::string detectDefaultInterface() {
    ExternalCommand query(configuration().ipCommand,
                          {"-4", "route", "show", "default", "0.0.0.0/0"});
    std::string output;
    query.setStdout(&output);
    if (query.execute() != 0) {
        throw std::runtime_error("Error while querying default route");
    }
    if (output.empty()) {
        throw std::runtime_error("Cannot get default route");
    }
    const auto words =
        StringUtil::split<std::list<std::string>>(output, " ", /*dropEmpty=*/true, false);
    const auto device = std::find(words.begin(), words.end(), "dev");
    if (device == words.end() || std::next(device) == words.end()) {
        throw std::runtime_error("Cannot get 'dev' from default route");
    }
    progress("Detected interface for default route: " + *std::next(device));
    return *std::next(device);
}

bool hasMasqueradeRule(const PacketRule& rule) {
    ExternalCommand check(configuration().iptablesCommand, rule.arguments("-C"));
    std::string output;
    std::string errors;
    check.setStdout(&output);
    check.setStderr(&errors);
    const auto result = check.execute();
    if (result != 0 && result != kRuleMissing) {
        throw std::runtime_error("Error while checking for default MASQUERADE rule (" +
                                 std::to_string(result) + "): " + errors);
    }
    return result == 0;
}

void ensureMasquerade(const std::string& defaultInterface) {
    const PacketRule rule = masqueradeRule(defaultInterface);
    if (hasMasqueradeRule(rule)) {
        return;
    }
    if (ExternalCommand(configuration().iptablesCommand, rule.arguments("-A")).execute() != 0) {
        throw std::runtime_error("Error while adding MASQURADE rule for default interface " +
                                 defaultInterface);
    }
    // deliberate: scripts look for this text, whose network differs from the rule's
    progress("Added default MASQUERADE rule for network 10.64.0.0/10 on device " +
             defaultInterface);
}

/// The first interface with a default route, empty when there is none; the file is
/// proc_pid_net(5)'s "route".
std::string firstDefaultInterface(LineReader& routes) {
    std::string line;
    routes.next(line);  // the column header
    while (routes.next(line)) {
        WordReader words(line, kWhiteSpace);
        const std::string_view interface = words.next();
        const std::string_view destination = words.next();
        if (destination == "00000000") {
            return std::string(interface);
        }
    }
    return "";
}

/// netdevice(7), SIOCGIFMTU.
int mtuOf(const std::string& interface) {
    const FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.valid()) {
        return kUsualMtu;
    }
    ifreq request{};
    interface.copy(request.ifr_name, IFNAMSIZ - 1);
    if (::ioctl(socket.get(), SIOCGIFMTU, &request) != 0) {
        const int error = errno;
        report("MTU detection failed: ioctl(): " + errorText(error));
        return kUsualMtu;
    }
    return request.ifr_mtu < 1 ? kUsualMtu : request.ifr_mtu;
}

}  // namespace

FileDescriptor prepareHost(const ContainerHandle& /*handle*/) {
    const bool createdNow = ensureRuntimeDirectory();
    FileDescriptor lock = lockRuntimeDirectory();
    const bool privatisedNow = privatiseRuntimeDirectory();
    // once per boot in practice: the rule is not checked again on every start, deliberately
    if (createdNow || privatisedNow) {
        ensureMasquerade(detectDefaultInterface());
    }
    return lock;
}

int detectDefaultMtu(const char* routeTable) {
    LineReader routes(routeTable);
    if (!routes.opened()) {
        return kUsualMtu;
    }
    const std::string interface = firstDefaultInterface(routes);
    if (interface.empty()) {
        report("Could not detect default network interface (no default route configured?)");
        return kUsualMtu;
    }
    return mtuOf(interface);
}
