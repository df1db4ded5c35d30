#include "libkiv/system_calls.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

namespace {

constexpr std::uint32_t kNoNumber = 0xffffffff;  // of no call: a tracer sets it to cancel one
constexpr std::size_t kMostTables = 3;
constexpr std::size_t kLongestName = 32;

/// The name is an array, not a pointer, which the dynamic loader would have to relocate at every
/// start.
struct SystemCall {
    char name[kLongestName];
    std::uint32_t numbers[kMostTables];
};

#include "written/system_call_numbers.inc"

constexpr std::string_view kNamesOfTables[] = {"i386", "x32", "arm"};

/// nullptr when there is no call of that name. A name with a NUL byte never matches, even if it
/// begins with the name of a call.
const SystemCall* findCall(const std::string& name) {
    const auto* const found =
        std::lower_bound(std::begin(kSystemCalls), std::end(kSystemCalls), name.c_str(),
                         [](const SystemCall& call, const char* wanted) {
                             return std::strcmp(call.name, wanted) < 0;
                         });
    return found == std::end(kSystemCalls) || found->name != name ? nullptr : found;
}

}  // namespace

std::size_t countOfTables() {
    return std::size(kTables);
}

const SystemCallTable& systemCallTable(std::size_t index) {
    return kTables[index];
}

bool isSystemCallTable(const std::string& name) {
    return std::find(std::begin(kNamesOfTables), std::end(kNamesOfTables), name) !=
           std::end(kNamesOfTables);
}

bool isSystemCall(const std::string& name) {
    return findCall(name) != nullptr;
}

std::optional<std::uint32_t> systemCallNumber(const std::string& name, std::size_t table) {
    const SystemCall* const call = findCall(name);
    if (call == nullptr || call->numbers[table] == kNoNumber) {
        return std::nullopt;
    }
    return call->numbers[table];
}
