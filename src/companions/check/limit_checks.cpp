#include "companions/check/limit_checks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "companions/check/slice_settings.h"
#include "container/container_status.h"

namespace {

constexpr const char* kLimitsFile = "/etc/tarnwell/limits.conf";

/// A setting of systemd.resource-control(5) and the kernel's file for it.
struct Limit {
    const char* setting;
    const char* file;
    bool isMemory;
};

constexpr Limit kLimits[] = {
    {"TasksMax", "pids.max", false},
    {"MemoryHigh", "memory.high", true},
    {"MemoryMax", "memory.max", true},
};

/// The limit in bytes or processes. Nothing for a percentage of the machine's resources, for no
/// limit ("infinity"), and for text that systemd would not understand.
std::optional<std::uint64_t> parseLimit(const std::string& text) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
    if (error != std::errc() || unit.size() > 1) {
        return std::nullopt;
    }
    constexpr std::string_view kUnits = "KMGT";
    const auto power = unit.empty() ? 0 : kUnits.find(unit.front()) + 1;
    if (!unit.empty() && power == 0) {
        return std::nullopt;  // npos + 1
    }
    return number << (10 * power);
}

bool isInForce(const std::string& current, std::uint64_t wanted, bool isMemory) {
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(current.data(), current.data() + current.size(), number);
    if (parsed.ec != std::errc()) {
        return current.empty();  // not counted at all: that is another finding
    }
    // the kernel rounds limits to whole pages
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    return isMemory ? number / page == wanted / page : number == wanted;
}

/// Whether a share of the machine's memory, whose size systemd calculates, limits nothing. Not for
/// TasksMax: systemd's own 33% for all users applies only to slices that it has started.
bool isMissing(const std::string& current, const std::string& wanted, bool isMemory) {
    return isMemory && wanted.ends_with('%') && current == "max";
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

/// A controller of cgroups(7) that accounts need for figures and limits.
struct Controller {
    const char* name;
    const char* file;
};

constexpr Controller kControllers[] = {{"pids", "/pids.current"}, {"memory", "/memory.current"}};

/// `controllers` is the text of cgroup.controllers.
bool hasController(const std::string& controllers, const Controller& controller) {
    return (" " + controllers + " ").find(" " + std::string(controller.name) + " ") !=
           std::string::npos;
}

void checkLimit(const HostAccount& account, const Limit& limit, const SliceSetting& set,
                const std::string& cgroup, Findings& findings) {
    const auto wanted = parseLimit(set.value);
    const std::string current = readFirstLine(AT_FDCWD, cgroup + "/" + limit.file);
    if (wanted ? !isInForce(current, *wanted, limit.isMemory)
               : isMissing(current, set.value, limit.isMemory)) {
        FindingsOf(findings, set.file)
            .warn(set.line, "the limit is not in force for '" + account.name + "': " + limit.file +
                                " is " + current +
                                ", run systemctl reload-or-restart kivctl-limits and see kiv(7)");
    }
}

void checkAccount(const HostAccount& account, const std::string& controllers,
                  const SliceDropIns& dropIns, const std::string& hierarchy, Findings& findings) {
    const std::string cgroup = hierarchy + "/" + userSlice(account.user->uid);
    if (!account.hasContainer() || !exists(cgroup)) {
        return;
    }
    for (const Controller& controller : kControllers) {
        if (hasController(controllers, controller) && !exists(cgroup + controller.file)) {
            FindingsOf(findings, cgroup + controller.file)
                .warn(0, "'" + account.name +
                             "' is not counted: no limit of this kind can hold, enable the "
                             "controller for user.slice");
        }
    }
    const SliceSettings settings = dropIns.settingsOf(account.user->uid);
    for (const Limit& limit : kLimits) {
        const auto set = settings.find(limit.setting);
        if (set != settings.end()) {
            checkLimit(account, limit, set->second, cgroup, findings);
        }
    }
}

/// Reports missing controllers and returns those that the host has.
std::string checkControllers(const std::string& hierarchy, Findings& findings) {
    const std::string file = hierarchy + "/cgroup.controllers";
    const FindingsOf root(findings, file);
    if (!exists(file)) {
        root.error(0, "no cgroup v2 is mounted here: no account can be entered");
        return "";
    }
    const std::string controllers = readFirstLine(AT_FDCWD, file);
    for (const Controller& controller : kControllers) {
        if (!hasController(controllers, controller)) {
            root.warn(0, "the controller " + std::string(controller.name) +
                             " is missing: accounts have no limit of this kind, see cgroups(7)");
        }
    }
    return controllers;
}

/// The drop-in that kivctl-limits.service links for each account of the registry.
std::string linkOf(const HostAccount& account, const LimitPlaces& places) {
    return places.systemd + "/run/systemd/system/user-" + std::to_string(account.user->uid) +
           ".slice.d/40-kivctl.conf";
}

/// Finds the accounts that were registered after the service ran. Without any link it is not used.
void checkLinks(const HostAccounts& accounts, const LimitPlaces& places, Findings& findings) {
    std::vector<const HostAccount*> without;
    bool isUsed = false;
    for (const HostAccount& account : accounts.all) {
        if (account.isRegistered && account.user && account.user->uid != 0) {
            const bool linked = exists(linkOf(account, places));
            isUsed = isUsed || linked;
            if (!linked) {
                without.push_back(&account);
            }
        }
    }
    if (!isUsed) {
        return;
    }
    for (const HostAccount* account : without) {
        FindingsOf(findings, kLimitsFile)
            .warn(0, "the limits are not in force for '" + account->name +
                         "': run systemctl reload kivctl-limits");
    }
}

}  // namespace

void checkLimits(const HostAccounts& accounts, Findings& findings, const LimitPlaces& places) {
    const std::string controllers = checkControllers(places.hierarchy, findings);
    const SliceDropIns dropIns(places.systemd);
    for (const HostAccount& account : accounts.all) {
        if (account.user) {
            checkAccount(account, controllers, dropIns, places.hierarchy, findings);
        }
    }
    checkLinks(accounts, places, findings);
}
