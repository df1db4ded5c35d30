#include "libkiv/system_call_rules.h"

#include <seccomp.h>

#include <stdexcept>
#include <string_view>

#include "util/word_reader.h"

namespace {

struct Verb {
    const char* word;
    Answer answer;
};

constexpr const char* kBlanks = " \t";
constexpr const char* kAllow = "allow";
constexpr Verb kVerbs[] = {{"deny", Answer::Deny}, {"kill", Answer::Kill}};

/// What no shell of an account has a use for: calls that only root may make in earnest, and those
/// whose kernel code has been the way in more often than anybody needed it.
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
    // the kernel's own programs, counters and queues
    "bpf", "perf_event_open", "userfaultfd", "io_uring_setup", "io_uring_enter",
    "io_uring_register",
    // files past the permissions of their directories
    "open_by_handle_at",
    // the machine
    "swapon", "swapoff", "reboot", "acct", "quotactl", "quotactl_fd",
    // its clocks
    "settimeofday", "stime", "clock_settime", "clock_settime64", "adjtimex", "clock_adjtime",
    "clock_adjtime64",
    // its ports
    "ioperm", "iopl", "pciconfig_read", "pciconfig_write", "pciconfig_iobase"};

bool isSystemCall(const std::string& name) {
    // the library reads up to a NUL byte, and would take "mount\0x" for a call that no rule is
    // known by
    return name.find('\0') == std::string::npos &&
           seccomp_syscall_resolve_name(name.c_str()) != __NR_SCMP_ERROR;
}

/// All of them before any is applied: an item counts whole or not at all.
void requireSystemCalls(WordReader names) {
    for (auto word = names.next(); !word.empty(); word = names.next()) {
        const std::string name(word);
        if (!isSystemCall(name)) {
            throw std::runtime_error("unknown system call '" + name + "'");
        }
    }
}

}  // namespace

SystemCallRules defaultSystemCallRules() {
    SystemCallRules rules = {
        {"unshare", Answer::DenyNewUserNamespace},
        {"clone", Answer::DenyNewUserNamespace},
        {"clone3", Answer::Missing},  // its flags stand in memory, where a filter cannot look
        {"ioctl", Answer::DenyTerminalInput},
        {"personality", Answer::DenyOddPersonality},
    };
    for (const char* name : kDenied) {
        // a C library that is older than the call: the kernel may know it, we cannot
        if (isSystemCall(name)) {
            rules.emplace(name, Answer::Deny);
        }
    }
    return rules;
}

void applySystemCallItem(SystemCallRules& rules, const std::string& item) {
    WordReader words(item, kBlanks);
    WordReader names = words;
    const std::string_view first = words.next();
    bool hasVerb = first == kAllow;
    Answer answer = Answer::Deny;
    for (const Verb& verb : kVerbs) {
        if (first == verb.word) {
            answer = verb.answer;
            hasVerb = true;
        }
    }
    if (hasVerb) {
        names = words;
    }
    const std::string_view second = words.next();
    if (first.empty() || (hasVerb && second.empty())) {
        throw std::runtime_error("'" + item + "' without a system call");
    }
    if (!hasVerb && !second.empty()) {
        throw std::runtime_error("'" + std::string(first) + "' is not deny, allow or kill");
    }
    requireSystemCalls(names);
    for (auto word = names.next(); !word.empty(); word = names.next()) {
        const std::string name(word);
        rules.erase(name);
        if (first != kAllow) {
            rules.emplace(name, answer);
        }
    }
}
