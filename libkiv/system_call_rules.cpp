#include "libkiv/system_call_rules.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "libkiv/system_calls.h"
#include "util/word_reader.h"

namespace {

/// What the names after a verb are, and the error texts for a missing and an unknown name.
struct Object {
    bool (*isKnown)(const std::string& name);
    std::string (*unknown)(const std::string& name);
    std::string (*missing)(const std::string& item);
};

struct Verb {
    const char* word;
    Object object;
    void (*apply)(SystemCallRules& rules, const std::string& name);
};

constexpr Object kCall = {
    isSystemCall, [](const std::string& name) { return "unknown system call '" + name + "'"; },
    [](const std::string& item) { return "'" + item + "' without a system call"; }};
constexpr Object kTable = {
    isSystemCallTable,
    [](const std::string& name) { return "unknown system-call table '" + name + "'"; },
    [](const std::string& item) { return "'" + item + "' without a system-call table"; }};
constexpr Verb kVerbs[] = {
    {"deny", kCall, [](auto& rules, const auto& name) { rules.calls[name] = Answer::Deny; }},
    {"kill", kCall, [](auto& rules, const auto& name) { rules.calls[name] = Answer::Kill; }},
    {"allow", kCall, [](auto& rules, const auto& name) { rules.calls.erase(name); }},
    {"deny-table", kTable, [](auto& rules, const auto& name) { rules.deniedTables.insert(name); }},
    {"allow-table", kTable, [](auto& rules, const auto& name) { rules.deniedTables.erase(name); }},
};
constexpr const Verb& kBareName = kVerbs[0];
constexpr const char* kNoNewPrivileges = "no_new_privs";
constexpr const char* kBlanks = " \t";

/// Calls that an account's programs do not need: calls that only root can use, and calls whose
/// kernel code is attacked more often than it is used.
constexpr const char* kDenied[] = {
    // modules and kernels
    "init_module", "finit_module", "delete_module", "create_module", "get_kernel_syms",
    "query_module", "kexec_load", "kexec_file_load",
    // mounts
    "mount", "umount", "umount2", "pivot_root", "fsopen", "fsconfig", "fsmount", "fspick",
    "move_mount", "open_tree", "open_tree_attr", "mount_setattr",
    // namespaces of others
    "setns",
    // keyrings
    "add_key", "keyctl", "request_key",
    // the kernel's own programs, counters, queues and messages
    "bpf", "perf_event_open", "userfaultfd", "io_uring_setup", "io_uring_enter",
    "io_uring_register", "syslog",
    // files without the permissions of their directories, and events of others' files
    "open_by_handle_at", "lookup_dcookie", "fanotify_init",
    // comparing processes' resources, and moving their memory
    "kcmp", "move_pages", "migrate_pages",
    // the machine
    "swapon", "swapoff", "reboot", "acct", "quotactl", "quotactl_fd",
    // its clocks
    "settimeofday", "stime", "clock_settime", "clock_settime64", "adjtimex", "clock_adjtime",
    "clock_adjtime64",
    // its ports
    "ioperm", "iopl", "pciconfig_read", "pciconfig_write", "pciconfig_iobase",
    // obsolete calls
    "uselib", "ustat", "sysfs", "_sysctl", "nfsservctl", "vm86", "vm86old"};

/// The verb with that word; nullptr for a bare name.
const Verb* findVerb(std::string_view word) {
    const auto* const verb = std::find_if(std::begin(kVerbs), std::end(kVerbs),
                                          [word](const Verb& row) { return row.word == word; });
    return verb == std::end(kVerbs) ? nullptr : verb;
}

/// Checks all names before any is applied: an item is applied as a whole or not at all.
void checkNames(WordReader names, const Verb& verb) {
    for (auto word = names.next(); !word.empty(); word = names.next()) {
        const std::string name(word);
        if (!verb.object.isKnown(name)) {
            throw std::runtime_error(verb.object.unknown(name));
        }
    }
}

}  // namespace

SystemCallRules defaultSystemCallRules() {
    SystemCallRules rules;
    rules.calls = {
        {"unshare", Answer::DenyNewUserNamespace},
        {"clone", Answer::DenyNewUserNamespace},
        {"clone3", Answer::Missing},  // its flags are in memory, which a filter cannot read
        {"ioctl", Answer::DenyHarmfulRequests},
        {"personality", Answer::DenyOddPersonality},
        // network namespaces do not separate this family: it reaches the hypervisor, and listeners
        // on the host
        {"socket", Answer::DenyVsock},
    };
    // skips calls without a number: the libseccomp of the build may be older than a call
    for (const char* name : kDenied) {
        rules.calls.emplace(name, Answer::Deny);
    }
    // hardly any program needs it, and rarely used kernel code has been attacked before
    rules.deniedTables = {"x32"};
    return rules;
}

void applySystemCallItem(SystemCallRules& rules, const std::string& item) {
    WordReader words(item, kBlanks);
    WordReader names = words;
    const std::string_view first = words.next();
    const std::string_view second = WordReader(words).next();
    if (first == kNoNewPrivileges) {
        if (!second.empty()) {
            throw std::runtime_error("'" + std::string(first) + "' takes no names");
        }
        rules.noNewPrivileges = true;
        return;
    }
    const Verb* const found = findVerb(first);
    const Verb& verb = found != nullptr ? *found : kBareName;
    if (found != nullptr) {
        names = words;
    }
    if (first.empty() || (found != nullptr && second.empty())) {
        throw std::runtime_error(verb.object.missing(item));
    }
    if (found == nullptr && !second.empty()) {
        throw std::runtime_error("'" + std::string(first) +
                                 "' is not deny, kill, allow, deny-table or allow-table");
    }
    checkNames(names, verb);
    for (auto word = names.next(); !word.empty(); word = names.next()) {
        verb.apply(rules, std::string(word));
    }
}
