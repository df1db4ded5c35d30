// The library's "seccomp" items, one per line, in addition to the default rules.
#include <stdexcept>
#include <string>

#include "input.h"
#include "libkiv/system_call_rules.h"
#include "libkiv/system_calls.h"

namespace {

void requireKnownNames(const SystemCallRules& rules) {
    for (const auto& [name, answer] : rules.calls) {
        demand(isSystemCall(name), "a system call's name");
    }
    for (const std::string& name : rules.deniedTables) {
        demand(isSystemCallTable(name), "a table's name");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const SystemCallRules defaults = defaultSystemCallRules();
    SystemCallRules rules = defaults;
    for (Input input(data, size); !input.empty();) {
        const SystemCallRules before = rules;
        try {
            applySystemCallItem(rules, input.take('\n'));
        } catch (const std::runtime_error&) {
            demand(rules == before, "an item that is refused changes nothing");
        }
    }
    requireKnownNames(rules);
    return 0;
}
