#include "companions/run/run_options.h"

#include <getopt.h>
#include <libintl.h>

#include <charconv>
#include <cstring>
#include <string_view>

#include "companions/command_line.h"
#include "util/output.h"

namespace {

// Codes of options that have no short form, outside the characters.
constexpr int kPreserveFds = 256;
constexpr int kStart = 257;

constexpr const char* kShortOptions = "+C:Te:htu:v";  // "+": options stand before USER

constexpr option kLongOptions[] = {
    {"help", no_argument, nullptr, 'h'},
    {"no-pty", no_argument, nullptr, 'T'},
    {"preserve-fds", required_argument, nullptr, kPreserveFds},
    {"pty", no_argument, nullptr, 't'},
    {"start", no_argument, nullptr, kStart},
    {"version", no_argument, nullptr, 'v'},
    {nullptr, 0, nullptr, 0},
};

constexpr unsigned kLargestUmask = 0777;
constexpr unsigned kMostDescriptors = 1U << 20;  // no process may open more by default

/// The whole text as a number up to `largest`, without sign or blanks.
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

/// setenv(3) takes a name that is not empty and holds no "=".
std::string parseVariable(const char* text) {
    const char* const equals = std::strchr(text, '=');
    if (equals == nullptr || equals == text) {
        throw usageError("'%s' is not NAME=VALUE", text);
    }
    return text;
}

void take(RunRequest& request, int code, char** argv) {
    switch (code) {
        case 'C':
            request.directory = optarg;
            break;
        case 'T':
            request.terminal = Terminal::Callers;
            break;
        case 'e':
            request.variables.push_back(parseVariable(optarg));
            break;
        case 'h':
            request.action = RunAction::Help;
            break;
        case 't':
            request.terminal = Terminal::Own;
            break;
        case 'u':
            request.umask = parseUmask(optarg);
            break;
        case 'v':
            request.action = RunAction::Version;
            break;
        case kPreserveFds:
            request.preserved = parseCount(optarg);
            break;
        case kStart:
            request.start = true;
            break;
        default:
            throw optionError(argv, kShortOptions, kLongOptions);
    }
}

}  // namespace

RunRequest parseRunOptions(int argc, char** argv) {
    RunRequest request;
    opterr = 0;
    optind = 0;  // getopt(3): starts from scratch, also after another vector
    for (;;) {
        const int code = ::getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr);
        if (code == -1) {
            break;
        }
        take(request, code, argv);
        if (request.action != RunAction::Enter) {
            return request;
        }
    }
    if (optind >= argc) {
        throw usageError("missing user name");
    }
    request.user = argv[optind];
    int next = optind + 1;
    if (next < argc && std::strcmp(argv[next], "--") == 0) {
        ++next;
    }
    request.command.assign(argv + next, argv + argc);
    return request;
}

void printRunHelp() {
    print(std::string(::gettext("Usage:")) + " kiv-run [" + ::gettext("options") + "] " +
          ::gettext("USER [COMMAND [ARGUMENT]...]") + "\n\n");
    print(std::string(::gettext("Run a command, or the login shell, in the user's container.")) +
          "\n\n");
    print(std::string(::gettext("Options:")) + "\n");
    printOption("-C DIR", ::gettext("enter directory DIR, by default the user's home"));
    printOption("-e NAME=VALUE", ::gettext("set an environment variable"));
    printOption("-u UMASK", ::gettext("set the file mode creation mask, by default 022"));
    printOption("-T, --no-pty", ::gettext("run without a terminal of the container"));
    printOption("-t, --pty", ::gettext("run on a terminal of the container"));
    printOption("--preserve-fds N", ::gettext("keep the N descriptors from 3 on (LISTEN_FDS)"));
    printOption("--start", ::gettext("start the container first"));
    printOption("-h, --help", ::gettext("show this help"));
    printOption("-v, --version", ::gettext("show program version"));
}
