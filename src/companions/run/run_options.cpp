#include "companions/run/run_options.h"

#include <charconv>
#include <cstring>
#include <string_view>

#include "util/translatable.h"

namespace {

constexpr unsigned kLargestUmask = 0777;
constexpr unsigned kMostDescriptors = 1U << 20;  // the usual fs.nr_open, proc_sys_fs(5)

/// The number if the whole text is one, without sign or blanks, up to `largest`.
std::optional<unsigned> parseNumber(std::string_view text, int base, unsigned largest) {
    unsigned number = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number, base);
    const bool isWhole = parsed.ec == std::errc() && parsed.ptr == end;
    return isWhole && number <= largest ? std::optional(number) : std::nullopt;
}

mode_t parseUmask(const char* text) {
    const auto mask = parseNumber(text, 8, kLargestUmask);
    if (!mask) {
        throw usageError("'%s' is not an octal number up to 777", text);
    }
    return *mask;
}

unsigned parseCount(const char* text) {
    const auto count = parseNumber(text, 10, kMostDescriptors);
    if (!count) {
        throw usageError("'%s' is not a number of descriptors", text);
    }
    return *count;
}

/// Checks "NAME=VALUE": as for setenv(3), the name must not be empty.
std::string parseVariable(const char* text) {
    const char* const equals = std::strchr(text, '=');
    if (equals == nullptr || equals == text) {
        throw usageError("'%s' is not NAME=VALUE", text);
    }
    return text;
}

std::vector<CommandOption> optionsFor(RunRequest& request) {
    return {
        {'C', nullptr, "DIR", translatable("work in directory DIR (default: the user's home)"),
         [&request](const char* value) { request.directory = value; }},
        {'e', nullptr, "NAME=VALUE", translatable("set an environment variable"),
         [&request](const char* value) { request.variables.push_back(parseVariable(value)); }},
        {'u', nullptr, "UMASK", translatable("set the file mode creation mask (default: 022)"),
         [&request](const char* value) { request.umask = parseUmask(value); }},
        {'T', "no-pty", nullptr, translatable("run without a terminal of the container"),
         [&request](const char*) { request.terminal = Terminal::Callers; }},
        {'t', "pty", nullptr, translatable("run on a new terminal of the container"),
         [&request](const char*) { request.terminal = Terminal::Own; }},
        {0, "preserve-fds", "N", translatable("keep the N descriptors from 3 on (LISTEN_FDS)"),
         [&request](const char* value) { request.preserved = parseCount(value); }},
        {0, "start", nullptr, translatable("start the container first if it is not running"),
         [&request](const char*) { request.start = true; }},
    };
}

}  // namespace

RunRequest parseRunOptions(int argc, char** argv) {
    RunRequest request;
    const ParsedLine line =
        parseCommandLine(argc, argv, optionsFor(request), OptionPlace::BeforeOperands);
    request.action = line.action;
    if (request.action != Action::Work) {
        return request;
    }
    if (line.operands.empty()) {
        throw usageError("missing user name");
    }
    request.user = line.operands.front();
    auto next = line.operands.begin() + 1;
    if (next != line.operands.end() && std::strcmp(*next, "--") == 0) {
        ++next;
    }
    request.command.assign(next, line.operands.end());
    return request;
}

std::string runHelp() {
    RunRequest unused;
    return helpText({"kiv-run", translatable("USER [COMMAND [ARGUMENT]...]"),
                     translatable("Run a command, or the login shell, in the user's container.")},
                    optionsFor(unused));
}
