// ENV_PATH of login.defs(5), compared with a second parser that does not use LineReader.
#include <optional>

#include "companions/run/run_environment.h"
#include "input.h"

namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

std::string_view trimmed(std::string_view text, std::string_view characters) {
    const std::size_t begin = text.find_first_not_of(characters);
    if (begin == std::string_view::npos) {
        return "";
    }
    return text.substr(begin, text.find_last_not_of(characters) + 1 - begin);
}

/// The text after ENV_PATH when that is the first word.
std::optional<std::string> valueIn(std::string_view line) {
    constexpr std::string_view kItem = "ENV_PATH";
    constexpr std::string_view kPrefix = "PATH=";
    line = trimmed(line, kBlanks);
    const bool isNamed = line.starts_with(kItem);
    line.remove_prefix(isNamed ? kItem.size() : 0);
    const bool isItem = line.empty() || kBlanks.find(line.front()) != std::string_view::npos;
    if (!isNamed || !isItem) {
        return std::nullopt;
    }
    line = trimmed(line, std::string(kBlanks) + '"');
    line.remove_prefix(line.starts_with(kPrefix) ? kPrefix.size() : 0);
    return std::string(line);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    silenceMessages();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const InputFile file(input.all());
    const std::string path = loginPath(file.path());
    std::string expected;
    while (!input.empty()) {
        expected = valueIn(input.take('\n')).value_or(expected);
    }
    demand(path == (expected.empty() ? "/bin:/usr/bin" : expected),
           "the last line's, or the default");
    return 0;
}
