// The container configuration file, including the filters' expressions.
#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "config/configuration.h"
#include "input.h"
#include "util/string_util.h"

namespace {

void requireTrimmed(const std::string& item) {
    const std::string ends = item.empty() ? "" : std::string{item.front(), item.back()};
    demand(ends.find_first_of(kWhiteSpace) == std::string::npos,
           "an item without blanks around it");
    demand(!item.starts_with('#'), "an item that is no comment");
    demand(item.find('\n') == std::string::npos, "an item on one line");
}

void requireTrimmed(const std::list<std::string>& items) {
    for (const std::string& item : items) {
        requireTrimmed(item);
    }
}

void requireSound(const Configuration& result) {
    for (const auto& [directory, names] : result.allowlists) {
        demand(!directory.empty() && directory.find(' ') == std::string::npos,
               "one word a directory");
        requireTrimmed(names);
    }
    for (const auto section :
         {&Configuration::hide, &Configuration::empty, &Configuration::bind,
          &Configuration::cap_add, &Configuration::cap_drop, &Configuration::seccomp}) {
        requireTrimmed(result.*section);
    }
    for (const auto& [file, expression] : result.filters) {
        demand(!expression.empty() && file.find_first_of(" \t") == std::string::npos,
               "a filter's pair");
    }
    demand(result.ipCommand == "ip", "a host tool that no file changes");
}

/// regcomp(3) copies the text that a "+" or an interval repeats: each may double its memory. Anyone
/// who can write such an expression to root's file already controls the machine.
bool mayFillMemory(std::string_view text) {
    constexpr std::ptrdiff_t kMost = 12;
    return std::count_if(text.begin(), text.end(), [](char c) { return c == '+' || c == '{'; }) >
           kMost;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(Input(data, size).all());
    if (mayFillMemory(text)) {
        return 0;
    }
    const InputFile file(text);
    try {
        requireSound(Configuration::read(file.path()));
    } catch (const std::runtime_error& error) {
        demand(std::string_view(error.what()).starts_with("line "), "an error that names its line");
    }
    return 0;
}
