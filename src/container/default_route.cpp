#include "container/default_route.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <stdexcept>
#include <string_view>

#include "config/configuration.h"
#include "util/errors.h"
#include "util/external_command.h"
#include "util/file_descriptor.h"
#include "util/line_reader.h"
#include "util/output.h"
#include "util/string_util.h"
#include "util/word_reader.h"

namespace {

constexpr int kUsualMtu = 1500;

/// The first interface with a default route, empty when there is none; the file is "route" of
/// proc_pid_net(5).
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
        reportSystemError("MTU detection failed: ioctl(): ");
        return kUsualMtu;
    }
    return request.ifr_mtu < 1 ? kUsualMtu : request.ifr_mtu;
}

}  // namespace

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
