#include "companions/command_line.h"

#include <libintl.h>

#include <cstring>
#include <string_view>

#include "util/output.h"
#include "util/string_util.h"

namespace {

std::runtime_error unknownOption(const std::string& name) {
    return usageError("unknown option '-%s'", name);
}

std::runtime_error missingArgument(const std::string& name) {
    return usageError("option '-%s' requires an argument.", name);
}

const option* longOptionOf(const option* options, int code) {
    while (options->name != nullptr && options->val != code) {
        ++options;
    }
    return options->name == nullptr ? nullptr : options;
}

bool takesArgument(const char* shortOptions, char letter) {
    const char* const place = std::strchr(shortOptions, letter);
    return place != nullptr && place[1] == ':';
}

}  // namespace

std::runtime_error usageError(const char* message, const std::string& detail) {
    std::string text = ::gettext(message);
    StringUtil::replaceAll("%s", detail, text);
    return std::runtime_error(StringUtil::escapeControls(text));
}

std::runtime_error optionError(char** argv, const char* shortOptions, const option* longOptions) {
    // optopt: 0 for an unknown long option, otherwise the code of the option that is used wrongly
    const std::string_view word = argv[optind - 1];
    if (optopt == 0) {
        return unknownOption(std::string(word.substr(1)));
    }
    const option* const known = longOptionOf(longOptions, optopt);
    if (known != nullptr && word.starts_with("--")) {
        return known->has_arg == no_argument ? unknownOption(std::string(word.substr(1)))
                                             : missingArgument("-" + std::string(known->name));
    }
    const auto letter = static_cast<char>(optopt);
    return takesArgument(shortOptions, letter) ? missingArgument(std::string(1, letter))
                                               : unknownOption(std::string(1, letter));
}

void printOption(const char* usage, const char* description) {
    constexpr std::size_t kWidth = 24;
    std::string column = std::string("  ") + usage;
    column.resize(kWidth, ' ');
    print(column + description + "\n");
}
