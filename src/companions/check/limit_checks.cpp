#include "companions/check/limit_checks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

#include "container/container_status.h"
#include "util/directory_stream.h"
#include "util/line_reader.h"
#include "util/string_util.h"
#include "util/user_slice.h"

namespace {

/// A setting of systemd.resource-control(5) and the file in which the kernel has it.
struct Limit {
    std::string_view setting;
    const char* file;
    bool isMemory;
};

constexpr Limit kLimits[] = {
    {"TasksMax=", "pids.max", false},
    {"MemoryHigh=", "memory.high", true},
    {"MemoryMax=", "memory.max", true},
};

// systemd.unit(5): of the same name in several the first counts; the first two are of
// systemctl set-property
constexpr const char* kUnitFolders[] = {
    "/etc/systemd/system.control", "/run/systemd/system.control",   "/etc/systemd/system",
    "/run/systemd/system",         "/usr/local/lib/systemd/system", "/usr/lib/systemd/system"};

/// The value of a setting and where it is set.
struct Setting {
    std::string value;
    std::string file;
    unsigned long line = 0;
};

using Settings = std::map<std::string_view, Setting>;

/// In bytes or processes. Nothing for a share of the machine's, for none, and for what systemd
/// would not understand either.
std::optional<std::uint64_t> parseLimit(const Setting& setting) {
    const std::string& text = setting.value;
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

void readDropIn(const std::string& path, Settings& settings) {
    LineReader file(path);
    std::string line;
    for (unsigned long number = 1; file.next(line); ++number) {
        StringUtil::trim(line, kWhiteSpace);
        for (const Limit& limit : kLimits) {
            if (line.starts_with(limit.setting)) {
                settings[limit.setting] = {line.substr(limit.setting.size()), path, number};
            }
        }
    }
}

/// Of one unit's drop-ins, in the order of their names.
void readDropIns(const std::string& unit, Settings& settings) {
    std::map<std::string, std::string> paths;
    for (const char* folder : kUnitFolders) {
        const std::string directory = std::string(folder) + "/" + unit + ".d";
        const DirectoryStream files(::opendir(directory.c_str()));
        while (const dirent* found = files == nullptr ? nullptr : ::readdir(files.get())) {
            const std::string name = found->d_name;
            if (name.ends_with(".conf")) {
                paths.emplace(name, directory + "/" + name);
            }
        }
    }
    for (const auto& [name, path] : paths) {
        readDropIn(path, settings);
    }
}

bool isInForce(const std::string& current, std::uint64_t wanted, bool isMemory) {
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(current.data(), current.data() + current.size(), number);
    if (parsed.ec != std::errc()) {
        return current.empty();  // not counted at all, which is another finding
    }
    // the kernel keeps whole pages
    const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    return isMemory ? number / page == wanted / page : number == wanted;
}

bool exists(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0;
}

/// A controller of cgroups(7) without which accounts have no figures and no limits.
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

void checkAccount(const HostAccount& account, const std::string& controllers, const Settings& ofAll,
                  Findings& findings) {
    const std::string cgroup = std::string(kCgroupRoot) + "/" + userSlice(account.user->uid);
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
    Settings settings = ofAll;
    readDropIns("user-" + std::to_string(account.user->uid) + ".slice", settings);
    for (const Limit& limit : kLimits) {
        const auto set = settings.find(limit.setting);
        const auto wanted = set == settings.end() ? std::nullopt : parseLimit(set->second);
        const std::string current = readFirstLine(AT_FDCWD, cgroup + "/" + limit.file);
        if (wanted && !isInForce(current, *wanted, limit.isMemory)) {
            FindingsOf(findings, set->second.file)
                .warn(set->second.line, "the limit is not in force for '" + account.name +
                                            "': " + limit.file + " is " + current +
                                            ", run systemctl daemon-reload and see kiv(7)");
        }
    }
}

/// The controllers that the host has.
std::string checkControllers(Findings& findings) {
    const std::string file = std::string(kCgroupRoot) + "/cgroup.controllers";
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

}  // namespace

void checkLimits(const HostAccounts& accounts, Findings& findings) {
    const std::string controllers = checkControllers(findings);
    Settings ofAll;
    readDropIns("user-.slice", ofAll);  // systemd.unit(5): of every slice whose name begins so
    for (const HostAccount& account : accounts.all) {
        if (account.user) {
            checkAccount(account, controllers, ofAll, findings);
        }
    }
}
